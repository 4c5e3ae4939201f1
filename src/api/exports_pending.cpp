// Exports whose modules are not built by this version of the library yet. Each finds its
// module slot empty, exactly as on a board whose bring-up stopped before the module, and
// answers with its own null message. As a module lands, its exports move to the module's
// own export file.
#include "api/frame.h"

using namespace tvx;

// The export, the name its messages carry, then the arguments after the DeviceId.
#define TVX_PENDING(name, wording, ...)                       \
  TORVIXE_API int32_t name(DeviceId* id, ##__VA_ARGS__) {     \
    static const ExportText text{wording};                    \
    return ExportCall(id, text).Null();                       \
  }

extern "C" {

TVX_PENDING(Counters, "Counters", CountersRecord*)
TVX_PENDING(FirstGainControl, "FirstGainCtrl", const uint32_t*)
TVX_PENDING(SecondGainControl, "SecondGainCtrl", const uint32_t*)
TVX_PENDING(GetGCValues, "GetGCValues", GCValues*)
TVX_PENDING(GetGCValuesMulti, "GetGCValuesMulti", GCValues*)
TVX_PENDING(EQControl, "EQControl", const uint32_t*)
TVX_PENDING(EQErrorTblLoad, "EQErrorTblLoad", const char*)
TVX_PENDING(EQGetCoeff, "EQGetCoeff", EqCoefficients*)
TVX_PENDING(EQManualCoeffLoad, "EQManualCoeffLoad", const EqCoefficients*)
TVX_PENDING(DMPXLoad, "DMPXLoad", const char*)
TVX_PENDING(DMPXControl, "DMPXControl", const DmpxControl*)
TVX_PENDING(DMPXStatus, "DMPXStatus", uint32_t*)

}  // extern "C"
