// The data path over the register model: what MasterLoad/Start/Stop program, the refusals, and
// ReadChannelData against a ring the test completes buffer by buffer, signalling the channel's
// data event itself as the driver would.
#include <chrono>
#include <cstring>
#include <thread>
#include <tuple>

#include "loader_fixture.h"
#include "stream/channel_controls.h"
#include "stream/data_channel.h"

namespace tvx::test {
namespace {

constexpr uint32_t kBuffers = 4, kSize = 4096;   // per channel (the registry default); bytes

class DataPathTest : public LoaderTest {
 protected:
  void SetUp() override {
    // The ring exists before bring-up maps it.
    const uint32_t count = 17 * kBuffers;
    descriptors.resize(count);
    memory.resize(size_t(count) * kSize);
    for (uint32_t i = 0; i < count; ++i) {
      descriptors[i].Size = kSize;
      descriptors[i].Address = &memory[size_t(i) * kSize];
      descriptors[i].BusAddress = 0x10000000u + (i << 12);
    }
    script.memory_map_info.descriptor_count = count;
    script.memory_map_info.descriptors = reinterpret_cast<uintptr_t>(descriptors.data());
    script.interrupt_record.channels = reinterpret_cast<uintptr_t>(progress);
    LoaderTest::SetUp();
    data_event = os::CreateNamedEvent("Global\\zarim3evnt0");   // slot 3, channel 0
    ASSERT_NE(data_event, nullptr);
  }
  void TearDown() override {
    os::CloseEvent(data_event);
    LoaderTest::TearDown();
  }
  // The driver completes `n` more buffers of channel 0, each filled with its count, publishes
  // the new count (with release, as a driver does) and signals once.
  void Complete(uint32_t n) {
    uint32_t count = progress[0].Completed;
    for (uint32_t i = 0; i < n; ++i, ++count)
      std::memset(descriptors[count % kBuffers].Address, int(count & 0xFF), kSize);
    __atomic_store_n(&progress[0].Completed, count, __ATOMIC_RELEASE);
    os::SignalEvent(data_event);
  }
  int32_t Read(uint32_t size, uint32_t timeout_ms = 0) {
    out.assign(size + 16, 0xEE);
    copied = 0xDEAD;
    return ReadChannelData(&id, 0, out.data(), size, &copied, timeout_ms);
  }
  // The count each copied buffer carries, 4096 bytes at a time.
  std::vector<int> Counts() const {
    std::vector<int> counts;
    for (uint32_t at = 0; at < copied; at += kSize) counts.push_back(out[at]);
    return counts;
  }

  ScopedEnv runtime{"TORVIXE_RUNTIME_DIR", files.str()};
  std::vector<BufferDescriptor> descriptors;
  std::vector<uint8_t> memory;
  ChannelProgress progress[17] = {};
  os::Event data_event = nullptr;
  std::vector<uint8_t> out;
  uint32_t copied = 0;
};

// The geometry word takes the size of each channel's last buffer (4096 and 1024 bytes here),
// whatever the others are.
TEST_F(DataPathTest, LoadProgramsEverySelectAddressAndGeometry) {
  descriptors[0].Size = 128, descriptors[2].Size = 8192, descriptors[4].Size = 4096;
  descriptors[7].Size = 1024;
  BufferMap map{};
  ASSERT_EQ(MasterGetBuffers(&id, &map), 0);
  map.DescriptorCount = 8;
  ASSERT_EQ(MasterLoad(&id, &map), 0);
  std::vector<zsim_access> expected;
  for (uint32_t i = 0; i < 8; ++i) {
    expected.push_back(W(0x14, (i / 4) << 5 | (i % 4)));
    expected.push_back(W(0x00, (0x10000000u + (i << 12)) | 1));
    if (i == 3) expected.insert(expected.end(), {W(0x04, 0), W(0x08, 0x0600001F)});
    if (i == 7) expected.insert(expected.end(), {W(0x04, 0), W(0x08, 0x06000007)});
  }
  EXPECT_EQ(Trace(), expected);
}

TEST_F(DataPathTest, RefusalsReachNoRegister) {
  BufferMap map{};
  ASSERT_EQ(MasterGetBuffers(&id, &map), 0);
  BufferMap foreign = map;
  foreign.Descriptors = &map;
  EXPECT_EQ(MasterLoad(&id, &foreign), 1);
  ++map.DescriptorCount;
  EXPECT_EQ(MasterLoad(&id, &map), 1);
  EXPECT_STREQ(GetErrorMessage(),
               "MasterLoad [0]: Карта буферов не совпадает с отображённой памятью устройства (68 "
               "дескрипторов)\n");
  for (uint32_t parameter : {0u, 0xC0000000u, 0x20000000u}) EXPECT_EQ(MasterStart(&id, &parameter), 1);
  EXPECT_STREQ(GetErrorMessage(), "MasterStart [0]: параметр 0x20000000 не поддерживается\n");
  EXPECT_TRUE(Trace().empty());
  const uint32_t start = 0x80000000;
  EXPECT_EQ(MasterStart(&id, &start), 0);
  EXPECT_EQ(MasterStop(&id), 0);
  EXPECT_EQ(Trace(), (std::vector<zsim_access>{W(0x0C, 0xA0000000), W(0x0C, 0)}));

  io()->set_memory_mapped(false);
  --map.DescriptorCount;
  EXPECT_EQ(MasterLoad(&id, &map), 1);
  EXPECT_STREQ(GetErrorMessage(), "MasterLoad [0]: Память не отображена в устройство\n");
  BufferMap untouched{};
  untouched.DescriptorCount = 77;
  EXPECT_EQ(MasterGetBuffers(&id, &untouched), 0);
  EXPECT_EQ(uint32_t{untouched.DescriptorCount}, 77u);
  io()->set_memory_mapped(true);

  script.interrupt_info = 31;
  InterruptRecord record{};
  EXPECT_EQ(MasterGetInterruptInfo(&id, &record), -2);
  EXPECT_EQ(std::string(io()->GetErrorText()),
            "GetInterruptInfo: unable to get interrupt information; gle = 0x0000001F\n");
}

// Two events announcing 1 and 2 buffers fill 12288 bytes with three whole buffers in count
// order; the next read joins on without a gap.
TEST_F(DataPathTest, ReadsWholeBuffersInOrderAndConsecutiveReadsJoin) {
  std::thread driver([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    Complete(1);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    Complete(2);
  });
  EXPECT_EQ(Read(3 * kSize, 5000), 0);
  driver.join();
  EXPECT_EQ(copied, 3 * kSize);
  EXPECT_EQ(Counts(), (std::vector<int>{0, 1, 2}));
  Complete(2);
  EXPECT_EQ(Read(2 * kSize, 5000), 0);
  EXPECT_EQ(Counts(), (std::vector<int>{3, 4}));
  // A size that is no multiple of the buffer size: the tail of the last buffer is dropped and
  // nothing is written past the size.
  Complete(2);
  EXPECT_EQ(Read(kSize + 904, 5000), 0);
  EXPECT_EQ(copied, kSize + 904);
  EXPECT_EQ(out[kSize], 6);
  EXPECT_EQ(out[kSize + 904], 0xEE);
  EXPECT_EQ(Counts(), (std::vector<int>{5, 6}));
  const auto* channel = board()->DataChannel(0);
  EXPECT_EQ(channel->read_count(), 3u) << "the events are opened once";
  EXPECT_EQ(channel->last_position(), 7u);
}

// Results by precedence: -4 over everything, -2 (behind on entry) over -1 (overrun); after an
// overrun the next read takes the next buffer the driver completes.
TEST_F(DataPathTest, TimeoutBehindAndOverrun) {
  Complete(1);
  EXPECT_EQ(Read(2 * kSize, 30), -4);
  EXPECT_EQ(copied, kSize) << "what came before the time-out";
  progress[0].Completed += 3;   // 3 = BuffersPerCH - 1 ahead: behind on entry
  Complete(1);                  // ... and a whole ring past the position: overrun
  EXPECT_EQ(Read(kSize, 30), -2);
  EXPECT_EQ(copied, 0u);
  EXPECT_EQ(board()->DataChannel(0)->last_position(), 5u);
  std::thread driver([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    Complete(4);   // a whole ring while the reader waits
  });
  EXPECT_EQ(Read(kSize, 5000), -1);
  driver.join();
  EXPECT_EQ(copied, 0u);
  EXPECT_EQ(Read(0, 30), 0) << "size 0 waits for nothing";
  Complete(1);
  EXPECT_EQ(Read(kSize, 5000), 0) << "the channel goes on from the driver's count";
  EXPECT_EQ(Counts(), (std::vector<int>{9}));
}

TEST_F(DataPathTest, TerminateEndsABlockedReadAtOnce) {
  std::thread stopper([] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const os::Event terminate = os::CreateNamedEvent("TORVIX.TerminateEvent0");
    os::SignalEvent(terminate);
    os::CloseEvent(terminate);
  });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Read(kSize, os::kInfinite), 0);
  stopper.join();
  EXPECT_EQ(copied, 0u);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

// Without the driver's event the read cannot begin: 3, bytesRead untouched, and the next read
// tries again. Channel numbers stop at the channels built.
TEST_F(DataPathTest, MissingEventAndChannelBeyondTheBoard) {
  os::CloseEvent(data_event);
  data_event = nullptr;
  if (!OnWindows()) std::filesystem::remove(files.path() / "zarim3evnt0");
  EXPECT_EQ(Read(kSize, 10), 3);
  EXPECT_EQ(copied, 0xDEADu);
  EXPECT_EQ(board()->DataChannel(0)->read_count(), 0u);
  uint8_t byte = 0;
  EXPECT_EQ(ReadChannelData(&id, 17, &byte, 1, &copied, 0), 1);
  EXPECT_STREQ(GetErrorMessage(), "ReadChannelData [0] ChannelID 17: NULL-объект или NULL-параметр");
}

TEST_F(DataPathTest, ChannelControlsWriteTheirWordsAndReadStatusAndCounters) {
  const uint32_t word = 0xFFFFFFFF;
  EXPECT_EQ(IQControl(&id, &word), 0);
  EXPECT_EQ(DMA3CHControl(&id, &word), 0);
  EXPECT_EQ(DMDControl(&id, &word), 0);
  EXPECT_EQ(Trace(), (std::vector<zsim_access>{W(0x8078, word), W(0x807C, word), W(0x8080, word)}));
  io()->set_bar_mapped(false);   // a write the binding refuses: the detail stays in the binding
  EXPECT_EQ(DMA3CHControl(&id, &word), 1);
  EXPECT_STREQ(GetErrorMessage(), "DMA3CHControl [0]: \n");
  io()->set_bar_mapped(true);
  auto* iq = board()->Get<cIQCHCtrl>(Slot::IqChCtrl);
  auto* dmd = board()->Get<cDMDCHCtrl>(Slot::DmdChCtrl);
  ASSERT_EQ(model.Set("reg.0x8028", "0x00001234"), 0);
  EXPECT_EQ(iq->GetCounter(), 0x12);
  EXPECT_EQ(dmd->GetCounter(), 0x34);
  for (const auto& [status, iq_bit, dmd_bit] :
       {std::tuple{"0x30000000", 1, 1}, {"0x10000000", 1, 0}, {"0x20000000", 0, 1}}) {
    ASSERT_EQ(model.Set("reg.0x8018", status), 0);
    EXPECT_EQ(iq->GetStatusBit(), iq_bit) << status;
    EXPECT_EQ(dmd->GetStatusBit(), dmd_bit) << status;
  }
}

}  // namespace
}  // namespace tvx::test
