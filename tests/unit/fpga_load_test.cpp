// FPGALoad over the register model: device selection, the register sequence of a load, and
// every failure with its code, text and what it leaves in INT_0x04.
#include "board/fpga.h"
#include "loader_fixture.h"

namespace tvx::test {
namespace {

constexpr uint32_t kControl = 0x10;   // INT_0x04
using Accesses = std::vector<zsim_access>;
using Words = std::vector<uint32_t>;

class FpgaLoadTest : public LoaderTest {
 protected:
  int32_t Load(const char* name, const std::string& file) { return FPGALoad(&id, name, file.c_str()); }
  Accesses Writes() const {
    Accesses writes;
    for (const zsim_access& a : Trace())
      if (a.write) writes.push_back(a);
    return writes;
  }
  std::string Failed(const char* name, const std::string& text) {
    return "FPGALoad [0]: \"" + std::string(name) + "\" - " + text + "\n";
  }
};

// Reset request, polls until the (default third) reading acknowledges, the data words (the
// fifth byte alone in the second), two zero words, the done read, the release. A success
// leaves the error text alone.
TEST_F(FpgaLoadTest, FiveByteImageIsTheWholeSequence) {
  SetLastErrorText("earlier");
  ASSERT_EQ(Load("DEM", files.Write("five.bin", Bytes({1, 2, 3, 4, 5}))), 0) << GetErrorMessage();
  EXPECT_STREQ(GetErrorMessage(), "earlier");
  EXPECT_EQ(Trace(), (Accesses{W(kControl, 1), R(kControl, 0), R(kControl, 0), R(kControl, 1),
                               W(0x8000, 0x04030201), W(0x8000, 0x00000005), W(0x8000, 0),
                               W(0x8000, 0), R(kControl, 3), W(kControl, 0)}));
  EXPECT_EQ(clock.ms(), (Words{100, 10, 10}));
}

// Names fold ASCII letters only; each picks its own data port and reset mask. Nothing else is
// a name, and neither an unknown name nor a null file (refused whatever the name) touches a
// register.
TEST_F(FpgaLoadTest, NamesSelectTheirDevice) {
  const struct {
    const char* name;
    uint32_t port, reset;
    const char* key;
  } cases[] = {{"dEm", 0x8000, 0x1, "fpga.dem.state"},
               {"Dec", 0xA000, 0x4, "fpga.dec.state"},
               {"rS", 0xA200, 0xFFFFFFFF, "fpga.rs.state"}};
  const std::string file = files.Write("image.bin", Bytes({0xA5, 0x5A, 0x11}));
  for (const auto& c : cases) {
    model.Reset();
    ASSERT_EQ(Load(c.name, file), 0) << GetErrorMessage();
    const Accesses t = Trace();
    ASSERT_GE(t.size(), 4u);
    EXPECT_EQ(t.front(), W(kControl, c.reset)) << c.name;
    EXPECT_EQ(t[t.size() - 3], W(c.port, 0)) << c.name << ": second trailing zero word";
    EXPECT_EQ(Get(c.key), "loaded");
  }
  model.ClearTrace();
  for (const char* name : {"DEMX", "", "RS ", "\xC4\xC5\xCD",   // "DEM" if bit 7 were ignored
                           "R\xC5\xBF",                          // "Rſ": Unicode folds ſ to S
                           "\xC4\xC5\xCC"}) {                    // Cyrillic ДЕМ
    EXPECT_EQ(Load(name, file), 2) << name;
    EXPECT_EQ(GetErrorMessage(), "FPGALoad [0]: ПЛИС " + std::string(name) + " не опознана\n");
  }
  EXPECT_EQ(FPGALoad(&id, "XYZ", nullptr), -1);
  EXPECT_STREQ(GetErrorMessage(), "FPGALoad [0]: NULL-объект или NULL-параметр\n");
  EXPECT_TRUE(Trace().empty());
}

// Word i holds bytes 4i..4i+3, lowest first; a partial last word is zero above the file's
// bytes even when the buffer's memory held 0xFF bytes of an earlier, larger load. An empty
// file sends only the two zero words, and the done bit decides.
TEST_F(FpgaLoadTest, LastPartialWordIsZeroAboveTheFile) {
  const std::string dirty = files.Write("dirty.bin", std::vector<uint8_t>(8, 0xFF));
  for (const auto& [length, last] : {std::pair<size_t, uint32_t>{1, 0x11}, {4, 0x44332211}, {7, 0x332211}}) {
    ASSERT_EQ(Load("DEM", dirty), 0);
    std::vector<uint8_t> bytes(length);
    for (size_t i = 0; i < length; ++i) bytes[i] = uint8_t(0x11 * (i % 4 + 1));
    const std::string file = files.Write("partial.bin", bytes);
    model.ClearTrace();
    ASSERT_EQ(Load("DEM", file), 0);
    Words data;
    for (const zsim_access& a : Writes())
      if (a.addr == 0x8000) data.push_back(a.value);
    EXPECT_EQ(data.size(), (length + 3) / 4 + 2) << length;
    EXPECT_EQ(Words(data.end() - 3, data.end()), (Words{last, 0, 0})) << length;
  }
  model.Reset();
  model.ClearTrace();
  EXPECT_EQ(Load("DEM", files.Write("empty.bin", {})), 3);
  EXPECT_EQ(GetErrorMessage(), Failed("DEM", "ПЛИС не загрузилась: INT_0x04 = 0x00000001"));
  EXPECT_EQ(Writes(), (Accesses{W(kControl, 1), W(0x8000, 0), W(0x8000, 0), W(kControl, 1)}));
}

// After the 100 ms pause the wait polls for 1 s; the text prints 1000 in five columns and
// INT_0x04 keeps the reset mask. Nothing is remembered for the next load.
TEST_F(FpgaLoadTest, ResetNeverAcknowledgedTimesOutAfterOneSecond) {
  Set("fpga.dem.ack", "never");
  const std::string file = files.Write("image.bin", Bytes({1, 2, 3, 4, 5}));
  EXPECT_EQ(Load("DEM", file), 3);
  EXPECT_EQ(GetErrorMessage(), Failed("DEM", "ПЛИС не сбросилась. Превышен таймаут ожидания  1000 мс"));
  EXPECT_EQ(Writes(), (Accesses{W(kControl, 1)}));
  EXPECT_EQ(clock.ms(), (Words{100}));
  EXPECT_NEAR(double(Trace().size() - 1), 1000, 1) << "polls at 1 ms per reading";
  Set("fpga.dem.ack", "auto");
  EXPECT_EQ(Load("DEM", file), 0) << GetErrorMessage();
}

// Without done the device stays in reset and there is no release pause. The board refuses an
// image of another length than it expects as it refuses one that never raises done.
TEST_F(FpgaLoadTest, DoneNeverRisesLeavesTheDeviceInReset) {
  const std::string file = files.Write("image.bin", Bytes({1, 2, 3}));
  for (const auto& [name, key, value, mask] :
       {std::tuple{"DEM", "fpga.dem.done", "never", 1u}, {"dec", "fpga.dec.expect_bytes", "8", 4u}}) {
    model.Reset();
    clock.sleeps.clear();
    Set(key, value);
    EXPECT_EQ(Load(name, file), 3);
    char text[48];
    std::snprintf(text, sizeof text, "ПЛИС не загрузилась: INT_0x04 = 0x%08X", mask);
    EXPECT_EQ(GetErrorMessage(), Failed(name, text));
    EXPECT_EQ(Writes().back(), W(kControl, mask));
    EXPECT_EQ(clock.ms(), (Words{100, 10}));
  }
}

// A missing file, a buffer refused, and a file far beyond any image all fail before any
// register is touched; the allocation texts give the byte count asked for (in words).
TEST_F(FpgaLoadTest, FileAndMemoryFailuresTouchNoRegister) {
  const std::string missing = files.Path("no_such.bin");
  const std::string five = files.Write("five.bin", Bytes({1, 2, 3, 4, 5}));
  const std::string huge = files.Sparse("huge.bin", (uint64_t{3} << 30) + 1);
  for (const auto& [file, refuse, text] :
       {std::tuple{missing, false, "Ошибка открытия файла " + missing},
        {five, true, std::string("Ошибка выделения 8 байт памяти")},
        {huge, false, std::string("Ошибка выделения 3221225476 байт памяти")}}) {
    file_data::InstallAllocationHook(refuse ? RefuseAllocation : nullptr);
    EXPECT_EQ(Load("Dem", file), 3);
    EXPECT_EQ(GetErrorMessage(), Failed("Dem", text));
  }
  EXPECT_TRUE(Trace().empty());
  EXPECT_TRUE(clock.sleeps.empty());
}

// Anything thrown while loading ends the call with result 0 and a text of its own; the
// buffer and the file are released all the same (the fixture checks).
TEST_F(FpgaLoadTest, ExceptionsAnswerZeroWithTheirText) {
  const std::string file = files.Write("image.bin", Bytes({1, 2, 3, 4, 5}));
  clock.throw_std = true;
  EXPECT_EQ(Load("DEM", file), 0);
  EXPECT_STREQ(GetErrorMessage(), "FPGALoad [0] exception, DEM: clock stopped\n");
  clock.throw_std = false;
  clock.throw_other = true;
  EXPECT_EQ(Load("rs", file), 0);
  EXPECT_STREQ(GetErrorMessage(), "FPGALoad [0] unknown exception, rs\n");
}

}  // namespace
}  // namespace tvx::test
