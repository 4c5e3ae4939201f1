// RAMLoad over the register model: the address/data pairs, the odd final byte, and the codes
// and texts of every failure.
#include "board/ram.h"
#include "loader_fixture.h"

namespace tvx::test {
namespace {

using RamLoadTest = LoaderTest;

// Low byte first; the odd final byte is not written; the mode selects nothing on this board.
// The module addresses its registers from the block base it was given, not from the DEM base.
TEST_F(RamLoadTest, WordsGoToTheirAddressesLowByteFirst) {
  const struct { std::vector<uint8_t> bytes; std::vector<zsim_access> writes; } cases[] = {
      {Bytes({0x34, 0x12, 0x78, 0x56}),
       {W(0x8000, 0), W(0x8008, 0x1234), W(0x8000, 1), W(0x8008, 0x5678)}},
      {Bytes({1, 2, 3, 4, 5}), {W(0x8000, 0), W(0x8008, 0x0201), W(0x8000, 1), W(0x8008, 0x0403)}},
      {Bytes({0xAB}), {}},
  };
  for (const auto& c : cases) {
    const std::string file = files.Write("ram.bin", c.bytes);
    for (uint32_t mode : {0u, 255u}) {
      model.ClearTrace();
      EXPECT_EQ(RAMLoad(&id, file.c_str(), mode), 0);
      EXPECT_EQ(Trace(), c.writes) << c.bytes.size();
    }
  }
  EXPECT_EQ(Get("ram.1"), "0x0403");
  model.ClearTrace();
  cRAM ram(io(), 0x100);
  const std::vector<uint8_t> bytes = Bytes({0x22, 0x11});
  ram.WriteWords(bytes.data(), bytes.size());
  ram.WriteWords(nullptr, 8);
  EXPECT_EQ(Trace(), (std::vector<zsim_access>{W(0x400, 0), W(0x408, 0x1122)}));
}

TEST_F(RamLoadTest, FailuresAnswerWithTheirTextAndWriteNothing) {
  const std::string five = files.Write("five.bin", Bytes({1, 2, 3, 4, 5}));
  const std::string missing = files.Path("missing.bin");
  const std::string huge = files.Sparse("huge.bin", uint64_t{3} << 30);
  const struct { const char* file; bool refuse_memory; int32_t code; std::string text; } cases[] = {
      {missing.c_str(), false, -3, "Ошибка открытия файла " + missing},
      {five.c_str(), true, -3, "Ошибка выделения 5 байт памяти"},
      {huge.c_str(), false, -3, "Ошибка выделения 3221225472 байт памяти"},
  };
  for (const auto& c : cases) {
    file_data::InstallAllocationHook(c.refuse_memory ? RefuseAllocation : nullptr);
    EXPECT_EQ(RAMLoad(&id, c.file, 0), c.code);
    EXPECT_EQ(GetErrorMessage(), "RAMLoad [0]: " + c.text + "\n");
    EXPECT_EQ(file_data::OpenHolders(), 0);
  }
  EXPECT_TRUE(Trace().empty());
}

}  // namespace
}  // namespace tvx::test
