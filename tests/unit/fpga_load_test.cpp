// FPGALoad over the register model: device selection, the register sequence of a load, and
// every failure with its code, text and what it leaves in INT_0x04.
#include "board/fpga.h"
#include "loader_fixture.h"

namespace tvx::test {
namespace {

constexpr uint32_t kControl = 0x10;   // INT_0x04

class FpgaLoadTest : public LoaderTest {
 protected:
  int32_t Load(const char* name, const std::string& file) {
    return FPGALoad(&id, name, file.c_str());
  }
  std::vector<zsim_access> Writes() const {
    std::vector<zsim_access> writes;
    for (const zsim_access& a : Trace())
      if (a.write) writes.push_back(a);
    return writes;
  }
};

// Reset request, polls until the (default third) reading acknowledges, the data words (the
// fifth byte alone in the second), two zero words, the done read, the release.
TEST_F(FpgaLoadTest, FiveByteImageIsTheWholeSequence) {
  const std::string file = files.Write("five.bin", Bytes({1, 2, 3, 4, 5}));
  SetLastErrorText("earlier");
  ASSERT_EQ(Load("DEM", file), 0) << GetErrorMessage();
  EXPECT_STREQ(GetErrorMessage(), "earlier") << "a success leaves the error text alone";
  EXPECT_EQ(Trace(), (std::vector<zsim_access>{
                         W(kControl, 1), R(kControl, 0), R(kControl, 0), R(kControl, 1),
                         W(0x8000, 0x04030201), W(0x8000, 0x00000005), W(0x8000, 0),
                         W(0x8000, 0), R(kControl, 3), W(kControl, 0)}));
  EXPECT_EQ(clock.sleeps, (std::vector<uint32_t>{100, 10, 10}));
}

// Names fold ASCII letters only; each picks its own data port and reset mask.
TEST_F(FpgaLoadTest, NamesSelectTheirDevice) {
  const struct {
    const char* name;
    uint32_t port, reset;
    const char* key;
  } cases[] = {{"DEM", 0x8000, 0x1, "fpga.dem.state"}, {"dEm", 0x8000, 0x1, "fpga.dem.state"},
               {"Dec", 0xA000, 0x4, "fpga.dec.state"}, {"rS", 0xA200, 0xFFFFFFFF, "fpga.rs.state"}};
  const std::string file = files.Write("image.bin", Bytes({0xA5, 0x5A, 0x11}));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    model.Reset();
    ASSERT_EQ(Load(c.name, file), 0) << GetErrorMessage();
    const std::vector<zsim_access> t = Trace();
    ASSERT_GE(t.size(), 4u);
    EXPECT_EQ(t.front(), W(kControl, c.reset));
    EXPECT_EQ(t[t.size() - 3], W(c.port, 0)) << "second trailing zero word";
    EXPECT_EQ(Key(c.key), "loaded");
  }
}

TEST_F(FpgaLoadTest, UnknownNamesReturnTwoAndTouchNoRegister) {
  const std::string file = files.Write("image.bin", Bytes({1}));
  for (const char* name : {"DEMX", "", "RS ", "\xC4\xC5\xCD",   // "DEM" if bit 7 were ignored
                           "R\xC5\xBF",                          // "Rſ": Unicode folds ſ to S
                           "\xC4\xC5\xCC"}) {                    // Cyrillic ДЕМ
    SCOPED_TRACE(name);
    EXPECT_EQ(Load(name, file), 2);
    EXPECT_EQ(GetErrorMessage(), "FPGALoad [0]: ПЛИС " + std::string(name) + " не опознана\n");
  }
  EXPECT_TRUE(Trace().empty());
}

// A null file is refused whatever the name; the name is looked at only after.
TEST_F(FpgaLoadTest, NullArgumentsComeBeforeTheName) {
  const std::string file = files.Write("image.bin", Bytes({1}));
  const std::pair<const char*, const char*> cases[] = {
      {"DEM", nullptr}, {"XYZ", nullptr}, {nullptr, file.c_str()}};
  for (const auto& [name, path] : cases) {
    EXPECT_EQ(FPGALoad(&id, name, path), -1);
    EXPECT_STREQ(GetErrorMessage(), "FPGALoad [0]: NULL-объект или NULL-параметр\n");
  }
  EXPECT_TRUE(Trace().empty());
}

// Word i holds bytes 4i..4i+3, lowest first; a partial last word is zero above the file's
// bytes even when the buffer's memory held 0xFF bytes of an earlier, larger load.
TEST_F(FpgaLoadTest, LastPartialWordIsZeroAboveTheFile) {
  const std::pair<size_t, uint32_t> cases[] = {
      {1, 0x00000011}, {3, 0x00332211}, {4, 0x44332211}, {7, 0x00332211}};
  const std::string dirty = files.Write("dirty.bin", std::vector<uint8_t>(8, 0xFF));
  for (const auto& [length, last] : cases) {
    SCOPED_TRACE(length);
    ASSERT_EQ(Load("DEM", dirty), 0);
    std::vector<uint8_t> bytes(length);
    for (size_t i = 0; i < length; ++i) bytes[i] = uint8_t(0x11 * (i % 4 + 1));
    const std::string file = files.Write("partial.bin", bytes);
    model.ClearTrace();
    ASSERT_EQ(Load("DEM", file), 0);
    std::vector<uint32_t> data;
    for (const zsim_access& a : Writes())
      if (a.addr == 0x8000) data.push_back(a.value);
    EXPECT_EQ(data.size(), (length + 3) / 4 + 2);
    EXPECT_EQ(std::vector<uint32_t>(data.end() - 3, data.end()),
              (std::vector<uint32_t>{last, 0, 0}));
  }
}

// Nothing to send but the two zero words; the board sees no image and the done bit decides.
TEST_F(FpgaLoadTest, EmptyFileSendsOnlyTheZeroWordsAndDoneDecides) {
  EXPECT_EQ(Load("DEM", files.Write("empty.bin", {})), 3);
  EXPECT_STREQ(GetErrorMessage(),
               "FPGALoad [0]: \"DEM\" - ПЛИС не загрузилась: INT_0x04 = 0x00000001\n");
  EXPECT_EQ(Writes(), (std::vector<zsim_access>{W(kControl, 1), W(0x8000, 0), W(0x8000, 0),
                                                W(kControl, 1)}));
}

// After the 100 ms pause the wait polls for 1 s; the text prints 1000 in five columns and
// INT_0x04 keeps the reset mask. Nothing is remembered for the next load.
TEST_F(FpgaLoadTest, ResetNeverAcknowledgedTimesOutAfterOneSecond) {
  ASSERT_EQ(model.Set("fpga.dem.ack", "never"), 0);
  const std::string file = files.Write("image.bin", Bytes({1, 2, 3, 4, 5}));
  EXPECT_EQ(Load("DEM", file), 3);
  EXPECT_STREQ(GetErrorMessage(),
               "FPGALoad [0]: \"DEM\" - ПЛИС не сбросилась. Превышен таймаут ожидания  1000 мс\n");
  EXPECT_EQ(Writes(), (std::vector<zsim_access>{W(kControl, 1)}));
  EXPECT_EQ(clock.sleeps, (std::vector<uint32_t>{100}));
  EXPECT_NEAR(double(Trace().size() - 1), 1000, 1) << "polls at 1 ms per reading";
  ASSERT_EQ(model.Set("fpga.dem.ack", "auto"), 0);
  EXPECT_EQ(Load("DEM", file), 0) << GetErrorMessage();
}

// RS takes any set bit as its acknowledge: a loaded DEM's done bit answers the first poll.
TEST_F(FpgaLoadTest, RsAcceptsAnySetBitAsItsAcknowledge) {
  const std::string file = files.Write("image.bin", Bytes({9, 9}));
  ASSERT_EQ(Load("DEM", file), 0);
  ASSERT_EQ(model.Set("fpga.rs.ack", "never"), 0);
  model.ClearTrace();
  EXPECT_EQ(Load("RS", file), 0) << GetErrorMessage();
  EXPECT_EQ(Trace()[1], R(kControl, 0x2)) << "one poll, answered by DEM's done bit";
  EXPECT_EQ(Key("fpga.rs.state"), "loaded");
}

TEST_F(FpgaLoadTest, DoneNeverRisesLeavesTheDeviceInReset) {
  const struct {
    const char *name, *key;
    uint32_t mask;
    const char* text;
  } cases[] = {
      {"DEM", "fpga.dem.done", 1,
       "FPGALoad [0]: \"DEM\" - ПЛИС не загрузилась: INT_0x04 = 0x00000001\n"},
      {"dec", "fpga.dec.done", 4,
       "FPGALoad [0]: \"dec\" - ПЛИС не загрузилась: INT_0x04 = 0x00000004\n"}};
  const std::string file = files.Write("image.bin", Bytes({1, 2, 3}));
  for (const auto& c : cases) {
    model.Reset();
    clock.sleeps.clear();
    ASSERT_EQ(model.Set(c.key, "never"), 0);
    EXPECT_EQ(Load(c.name, file), 3);
    EXPECT_STREQ(GetErrorMessage(), c.text);
    EXPECT_EQ(Writes().back(), W(kControl, c.mask));
    EXPECT_EQ(clock.sleeps, (std::vector<uint32_t>{100, 10})) << "no release pause";
  }
}

// A missing file, a buffer refused, and a file far beyond any image all fail before any
// register is touched; the allocation texts give the byte count asked for.
TEST_F(FpgaLoadTest, FileAndMemoryFailuresTouchNoRegister) {
  const std::string missing = files.Path("no_such.bin");
  const std::string five = files.Write("five.bin", Bytes({1, 2, 3, 4, 5}));
  const std::string huge = files.Sparse("huge.bin", (uint64_t{3} << 30) + 1);
  const struct {
    const std::string& file;
    bool refuse;
    std::string text;
  } cases[] = {
      {missing, false, "FPGALoad [0]: \"Dem\" - Ошибка открытия файла " + missing + "\n"},
      {five, true, "FPGALoad [0]: \"Dem\" - Ошибка выделения 8 байт памяти\n"},
      {huge, false, "FPGALoad [0]: \"Dem\" - Ошибка выделения 3221225476 байт памяти\n"}};
  for (const auto& c : cases) {
    file_data::InstallAllocationHook(c.refuse ? RefuseAllocation : nullptr);
    EXPECT_EQ(Load("Dem", c.file), 3);
    EXPECT_EQ(GetErrorMessage(), c.text);
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
  EXPECT_EQ(file_data::LiveBuffers(), 0);
  clock.throw_std = false;
  clock.throw_other = true;
  EXPECT_EQ(Load("rs", file), 0);
  EXPECT_STREQ(GetErrorMessage(), "FPGALoad [0] unknown exception, rs\n");
}

}  // namespace
}  // namespace tvx::test
