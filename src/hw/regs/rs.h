// RS block: the RS FPGA and the demultiplexer.
#pragma once

#include <cstdint>

namespace tvx::rs {

constexpr uint32_t kFpgaConfigData = 0;   // write: configuration data while RS is in reset

// Demultiplexer: a byte table loaded step by step into a 65 535-step space, its data offset,
// three control words and four status bits.
constexpr uint32_t kDmpxData = 0;         // write: the byte of the current step
constexpr uint32_t kDmpxStatus = 0;       // read: status in bits 0-3
constexpr uint32_t kDmpxStatusMask = 0xF;
constexpr uint32_t kDmpxDataDone = 1;     // write 0 after every data byte
constexpr uint32_t kDmpxLoadStart = 2;    // write 0 once at the start of a load
constexpr uint32_t kDmpxStep = 3;         // write 0 for every step of the table address
constexpr uint32_t kDmpxOffsetLow = 21;
constexpr uint32_t kDmpxOffsetHigh = 22;
constexpr uint32_t kDmpxControl1 = 23;
constexpr uint32_t kDmpxControl2 = 24;
constexpr uint32_t kDmpxControl3 = 25;
constexpr uint32_t kDmpxControl3Inverted = 0xF;   // bits the hardware takes inverted
constexpr uint32_t kDmpxSteps = 65535;

}  // namespace tvx::rs
