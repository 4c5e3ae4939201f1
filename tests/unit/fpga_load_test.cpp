// FPGALoad over the register model: device selection, the exact register sequence of a load,
// every failure with its code, text and what it leaves in INT_0x04, and the exception handling.
#include <cmath>

#include "board/fpga.h"
#include "loader_fixture.h"

namespace tvx::test {
namespace {

constexpr uint32_t kControl = 0x10;   // INT_0x04
zsim_access W(uint32_t addr, uint32_t value) { return {addr, value, 1}; }
zsim_access R(uint32_t addr, uint32_t value) { return {addr, value, 0}; }

class FpgaLoadTest : public LoaderTest {
 protected:
  int32_t Load(const char* name, const std::string& file) {
    return FPGALoad(&id, name, file.c_str());
  }
  // The last value written to INT_0x04.
  uint32_t LastControlWrite() const {
    uint32_t last = 0xDEADBEEF;
    for (const zsim_access& a : Trace())
      if (a.write && a.addr == kControl) last = a.value;
    return last;
  }
};

// The whole sequence, from the 5-byte example: reset request, the polls until the (default
// third) reading acknowledges, the two data words (the fifth byte alone in the second), two
// zero words, the done read, the release; with the sleeps of 100, 10 and 10 ms.
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
  EXPECT_EQ(Key("fpga.dem.state"), "loaded");
}

// Names fold only ASCII letters; each one picks its own data port, reset and done masks.
TEST_F(FpgaLoadTest, NamesSelectTheirDevice) {
  const struct {
    const char* name;
    uint32_t port, reset, done;
    const char* key;
  } cases[] = {
      {"DEM", 0x8000, 0x1, 0x2, "fpga.dem.state"}, {"dem", 0x8000, 0x1, 0x2, "fpga.dem.state"},
      {"dEm", 0x8000, 0x1, 0x2, "fpga.dem.state"}, {"DEC", 0xA000, 0x4, 0x8, "fpga.dec.state"},
      {"Dec", 0xA000, 0x4, 0x8, "fpga.dec.state"}, {"RS", 0xA200, 0xFFFFFFFF, 0x4, "fpga.rs.state"},
      {"rs", 0xA200, 0xFFFFFFFF, 0x4, "fpga.rs.state"}, {"rS", 0xA200, 0xFFFFFFFF, 0x4, "fpga.rs.state"},
  };
  const std::string file = files.Write("image.bin", Bytes({0xA5, 0x5A, 0x11}));
  auto* fpga = board()->Get<cfpgaE>(Slot::Fpga);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    model.Reset();
    ASSERT_EQ(Load(c.name, file), 0) << GetErrorMessage();
    EXPECT_EQ(fpga->data_port(), c.port);
    EXPECT_EQ(fpga->reset_mask(), c.reset);
    EXPECT_EQ(fpga->done_mask(), c.done);
    const std::vector<zsim_access> t = Trace();
    ASSERT_GE(t.size(), 4u);
    EXPECT_EQ(t.front(), W(kControl, c.reset));
    EXPECT_EQ(t.back(), W(kControl, 0));
    EXPECT_EQ(t[t.size() - 3], W(c.port, 0)) << "second trailing zero word";
    EXPECT_EQ(Key(c.key), "loaded");
  }
}

TEST_F(FpgaLoadTest, UnknownNamesReturnTwoAndTouchNoRegister) {
  const std::string file = files.Write("image.bin", Bytes({1}));
  const char* names[] = {
      "DEMX", "", "ADC", "DE", "RS ", " RS", "D", "DEM\n",
      "\xC4\xC5\xCD",          // three bytes that fold to "DEM" if bit 7 is ignored
      "R\xC5\xBF",             // "Rſ": Unicode upper-cases ſ to S
      "\xC4\xC5\xCC",          // Cyrillic ДЕМ
      "\xEF\xBC\xA4\xEF\xBC\xA5\xEF\xBC\xAD",   // full-width ＤＥＭ
  };
  for (const char* name : names) {
    SCOPED_TRACE(name);
    model.ClearTrace();
    EXPECT_EQ(Load(name, file), 2);
    EXPECT_EQ(GetErrorMessage(), "FPGALoad [0]: ПЛИС " + std::string(name) + " не опознана\n");
    EXPECT_TRUE(Trace().empty());
  }
}

TEST_F(FpgaLoadTest, NullPathsComeBeforeTheNameIsLookedAt) {
  const std::string file = files.Write("image.bin", Bytes({1}));
  DeviceId far{200}, empty{1};
  const struct {
    DeviceId* id;
    const char* name;
    const char* file;
    const char* text;
  } cases[] = {
      {&id, "DEM", nullptr, "FPGALoad [0]: NULL-объект или NULL-параметр\n"},
      {&id, "XYZ", nullptr, "FPGALoad [0]: NULL-объект или NULL-параметр\n"},
      {&id, nullptr, file.c_str(), "FPGALoad [0]: NULL-объект или NULL-параметр\n"},
      {&id, nullptr, nullptr, "FPGALoad [0]: NULL-объект или NULL-параметр\n"},
      {nullptr, "DEM", file.c_str(), "FPGALoad: NULL-объект или NULL-параметр\n"},
      {&far, "DEM", file.c_str(), "FPGALoad [200]: NULL-объект или NULL-параметр\n"},
      {&empty, "DEM", file.c_str(), "FPGALoad [1]: NULL-объект или NULL-параметр\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(FPGALoad(c.id, c.name, c.file), -1);
    EXPECT_STREQ(GetErrorMessage(), c.text);
  }
  EXPECT_TRUE(Trace().empty());
}

// Word i holds bytes 4i..4i+3, lowest first; a partial last word is zero above the file's
// bytes, even when the buffer's memory held other bytes before (a larger load of 0xFF bytes
// ran first and freed the same size of block).
TEST_F(FpgaLoadTest, LastPartialWordIsZeroAboveTheFile) {
  const struct {
    size_t length;
    uint32_t last;
  } cases[] = {{1, 0x00000011}, {2, 0x00002211}, {3, 0x00332211}, {4, 0x44332211},
               {5, 0x00000011}, {7, 0x00332211}, {8, 0x44332211}};
  const std::string dirty = files.Write("dirty.bin", std::vector<uint8_t>(8, 0xFF));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.length);
    ASSERT_EQ(Load("DEM", dirty), 0);
    std::vector<uint8_t> bytes(c.length);
    for (size_t i = 0; i < c.length; ++i) bytes[i] = uint8_t(0x11 * (i % 4 + 1));
    const std::string file = files.Write("partial.bin", bytes);
    model.ClearTrace();
    ASSERT_EQ(Load("DEM", file), 0);
    std::vector<uint32_t> data;
    for (const zsim_access& a : Trace())
      if (a.write && a.addr == 0x8000) data.push_back(a.value);
    ASSERT_EQ(data.size(), (c.length + 3) / 4 + 2);
    EXPECT_EQ(data[data.size() - 3], c.last);
    EXPECT_EQ(data[data.size() - 2], 0u);
    EXPECT_EQ(data.back(), 0u);
  }
}

// Nothing to send but the two zero words; the board sees no image and the done bit decides.
TEST_F(FpgaLoadTest, EmptyFileSendsOnlyTheZeroWordsAndDoneDecides) {
  const std::string file = files.Write("empty.bin", {});
  EXPECT_EQ(Load("DEM", file), 3);
  EXPECT_STREQ(GetErrorMessage(),
               "FPGALoad [0]: \"DEM\" - ПЛИС не загрузилась: INT_0x04 = 0x00000001\n");
  EXPECT_EQ(Writes(), (std::vector<zsim_access>{W(kControl, 1), W(0x8000, 0), W(0x8000, 0),
                                                W(kControl, 1)}));
}

// The reset is never acknowledged: after the 100 ms pause the wait polls for 1 s, the text
// prints 1000 in five columns, and INT_0x04 keeps the reset mask (the only write).
TEST_F(FpgaLoadTest, ResetNeverAcknowledgedTimesOutAfterOneSecond) {
  ASSERT_EQ(model.Set("fpga.dem.ack", "never"), 0);
  const std::string file = files.Write("image.bin", Bytes({1, 2, 3, 4, 5}));
  EXPECT_EQ(Load("DEM", file), 3);
  EXPECT_STREQ(GetErrorMessage(),
               "FPGALoad [0]: \"DEM\" - ПЛИС не сбросилась. Превышен таймаут ожидания  1000 мс\n");
  EXPECT_EQ(Writes(), (std::vector<zsim_access>{W(kControl, 1)}));
  EXPECT_EQ(clock.sleeps, (std::vector<uint32_t>{100}));
  // 100 ms of sleep, then polls until the counter passed 1 s (1 ms per reading).
  EXPECT_NEAR(double(clock.now), 1.102e6, 2e3);
  const size_t polls = Trace().size() - 1;
  EXPECT_GE(polls, 999u);
  EXPECT_LE(polls, 1001u);

  // Nothing is remembered: with the acknowledge back the next load runs whole.
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
  const std::vector<zsim_access> t = Trace();
  EXPECT_EQ(t[0], W(kControl, 0xFFFFFFFF));
  EXPECT_EQ(t[1], R(kControl, 0x2)) << "one poll, answered by DEM's done bit";
  EXPECT_EQ(Key("fpga.dem.state"), "loaded");
  EXPECT_EQ(Key("fpga.rs.state"), "loaded");
}

TEST_F(FpgaLoadTest, DoneNeverRisesLeavesTheDeviceInReset) {
  const struct {
    const char* name;
    const char* key;
    uint32_t mask;
    const char* text;
  } cases[] = {
      {"DEM", "fpga.dem.done", 1, "FPGALoad [0]: \"DEM\" - ПЛИС не загрузилась: INT_0x04 = 0x00000001\n"},
      {"dec", "fpga.dec.done", 4, "FPGALoad [0]: \"dec\" - ПЛИС не загрузилась: INT_0x04 = 0x00000004\n"},
  };
  const std::string file = files.Write("image.bin", Bytes({1, 2, 3}));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    model.Reset();
    clock.sleeps.clear();
    ASSERT_EQ(model.Set(c.key, "never"), 0);
    EXPECT_EQ(Load(c.name, file), 3);
    EXPECT_STREQ(GetErrorMessage(), c.text);
    EXPECT_EQ(LastControlWrite(), c.mask);
    EXPECT_EQ(clock.sleeps, (std::vector<uint32_t>{100, 10})) << "no release pause after a failure";
  }
}

TEST_F(FpgaLoadTest, MissingFileTouchesNoRegister) {
  const std::string missing = files.Path("no_such.bin");
  EXPECT_EQ(Load("Dem", missing), 3);
  EXPECT_EQ(GetErrorMessage(), "FPGALoad [0]: \"Dem\" - Ошибка открытия файла " + missing + "\n");
  EXPECT_TRUE(Trace().empty());
  EXPECT_TRUE(clock.sleeps.empty());
}

TEST_F(FpgaLoadTest, BufferThatCannotBeHadFailsBeforeAnyRegister) {
  const std::string file = files.Write("five.bin", Bytes({1, 2, 3, 4, 5}));
  file_data::InstallAllocationHook(RefuseAllocation);
  EXPECT_EQ(Load("DEM", file), 3);
  EXPECT_STREQ(GetErrorMessage(), "FPGALoad [0]: \"DEM\" - Ошибка выделения 8 байт памяти\n");
  EXPECT_TRUE(Trace().empty());
}

// A file far beyond any image is refused as memory that cannot be had, with the right count.
TEST_F(FpgaLoadTest, HugeFileIsRefusedAsAnAllocation) {
  const std::string file = files.Sparse("huge.bin", (uint64_t{3} << 30) + 1);
  EXPECT_EQ(Load("DEM", file), 3);
  EXPECT_STREQ(GetErrorMessage(),
               "FPGALoad [0]: \"DEM\" - Ошибка выделения 3221225476 байт памяти\n");
  EXPECT_TRUE(Trace().empty());
}

// Anything thrown while loading ends the call with result 0 and a text of its own; the
// buffer and the file are gone all the same.
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
