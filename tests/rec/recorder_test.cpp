// The recording IO library in front of the virtual board, as the CLI puts it there: the library
// brought up, tuned and streaming 17 channels through it, then the recording held against what
// the board itself saw. The cases where the recorder cannot start run in child processes of
// this program, since a process starts its recorder once.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>
#include <vector>

#include "platform/os.h"
#include "preload.h"
#include "test_env.h"
#include "torvixe.h"
#include "zarimsim.h"

namespace {

namespace fs = std::filesystem;

// A library of the build, beside the driver library (or in a directory below it).
std::string Built(const char* base, const char* sub = "") {
  char name[64];
  tvx::os::DynamicLibraryFileName(base, name, sizeof name);
  const fs::path dir = zrec::ModuleDirectory(reinterpret_cast<const void*>(&CreateDeviceInstance));
  return (dir / sub / name).string();
}

struct Event {
  uint64_t n = 0;
  int64_t t = 0;
  std::string board, kind;
  std::vector<std::string> fields;
  std::string Field(const std::string& key) const {   // "key=value" fields of a call
    for (const std::string& f : fields)
      if (f.compare(0, key.size() + 1, key + "=") == 0) return f.substr(key.size() + 1);
    return "";
  }
};

struct Recording {
  std::vector<std::string> header;
  std::vector<Event> events;
};

Recording Read(const fs::path& file) {
  Recording r;
  std::ifstream in(file, std::ios::binary);
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line);
    Event e;
    if (!(words >> e.n >> e.t >> e.board >> e.kind)) {
      r.header.push_back(line);
      continue;
    }
    for (std::string f; words >> f;) e.fields.push_back(f);
    r.events.push_back(e);
  }
  return r;
}

uint32_t Hex(const std::string& text) { return uint32_t(std::strtoul(text.c_str(), nullptr, 16)); }

// The register accesses of a recording, in the form of the board's trace.
std::vector<zsim_access> Accesses(const Recording& r) {
  std::vector<zsim_access> out;
  for (const Event& e : r.events) {
    if (e.kind == "R" || e.kind == "W")
      out.push_back({Hex(e.fields.at(0)), Hex(e.fields.at(1)), uint8_t(e.kind == "W")});
    else if (e.kind == "call" && (e.fields[0] == "ZARIM_Read" || e.fields[0] == "ZARIM_Write"))
      out.push_back({Hex(e.Field("addr")), Hex(e.Field("value")), uint8_t(e.fields[0] == "ZARIM_Write")});
  }
  return out;
}

TEST(Recorder, RecordsEveryCallAccessAndBufferTheBoardSaw) {
  tvx::test::TempDir dir;
  const fs::path file = dir.path() / "rec.txt";
  const zrec::Preload p = zrec::InstallRecorder(Built("zarimrec"), Built("zarimio"), file.string(),
                                                "rec_tests\nsecond line");
  ASSERT_EQ(p.error, "");
  void* sim = tvx::os::LoadDynamicLibraryPath(p.target.c_str());
  ASSERT_NE(sim, nullptr) << p.target;
  auto sim_set = reinterpret_cast<decltype(&zsim_set)>(tvx::os::FindSymbol(sim, "zsim_set"));
  auto sim_trace = reinterpret_cast<decltype(&zsim_trace)>(tvx::os::FindSymbol(sim, "zsim_trace"));
  reinterpret_cast<decltype(&zsim_reset)>(tvx::os::FindSymbol(sim, "zsim_reset"))();
  ASSERT_EQ(sim_set(0, "dma.rate", "20"), 0);

  DeviceId board{0};
  ASSERT_EQ(CreateDeviceInstance(&board), 0) << GetErrorMessage();
  const double carrier = 1.2e9;
  EXPECT_EQ(SetCarrier(&board, &carrier), 0) << GetErrorMessage();
  BufferMap map{};
  ASSERT_EQ(MasterGetBuffers(&board, &map), 0);
  ASSERT_EQ(MasterLoad(&board, &map), 0) << GetErrorMessage();
  const uint32_t size = static_cast<const BufferDescriptor*>(map.Descriptors)[0].Size;
  std::atomic<int> failures{0};
  std::vector<std::thread> readers;
  for (uint32_t c = 0; c < 17; ++c)
    readers.emplace_back([&, c] {
      std::vector<uint8_t> data(size);
      uint32_t got = 0;
      for (int i = 0; i < 6; ++i)
        if (ReadChannelData(&board, c, data.data(), size, &got, 2000) != 0 || got != size) ++failures;
    });
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  const uint32_t start = 0x40000000;
  EXPECT_EQ(MasterStart(&board, &start), 0);
  for (auto& t : readers) t.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(MasterStop(&board), 0);
  ReleaseDeviceInstance(&board);
  std::vector<zsim_access> trace(sim_trace(0, nullptr, 0));   // kept after the close
  trace.resize(sim_trace(0, trace.data(), trace.size()));

  const Recording r = Read(file);
  EXPECT_EQ(r.header, (std::vector<std::string>{"zarimrec 1", "target " + p.target,
                                                "app rec_tests second line"}));
  ASSERT_FALSE(r.events.empty());
  std::vector<std::string> calls, first;   // every call; each name where it first came
  std::map<uint32_t, std::vector<uint32_t>> counts;
  for (size_t i = 0; i < r.events.size(); ++i) {
    const Event& e = r.events[i];
    ASSERT_EQ(e.n, i + 1) << "numbered from 1 without a gap";
    EXPECT_GE(e.t, i > 0 ? r.events[i - 1].t : 0) << "event " << e.n;
    EXPECT_EQ(e.board, "0") << "event " << e.n;
    if (e.kind == "call") {
      EXPECT_EQ(e.fields.at(2), "0") << "no call failed: event " << e.n;
      calls.push_back(e.fields[0]);
      if (std::find(first.begin(), first.end(), calls.back()) == first.end()) first.push_back(calls.back());
    } else if (e.kind == "D") {
      counts[std::stoul(e.fields.at(0))].push_back(std::stoul(e.fields.at(1)));
    }
  }
  // The library's order: opened and mapped, each reader's event name and progress records
  // (17 times, in any interleaving), then the release.
  const std::vector<std::string> order = {
      "ZARIM_Open", "ZARIM_MemoryMap", "ZARIM_BARMap", "ZARIM_GetSlotNumber",
      "ZARIM_GetInterruptInfo", "ZARIM_MemoryUnmap", "ZARIM_BARUnmap", "ZARIM_Close"};
  EXPECT_EQ(first, order);
  ASSERT_GE(calls.size(), 3u);
  EXPECT_EQ(std::vector<std::string>(calls.end() - 3, calls.end()),
            std::vector<std::string>(order.end() - 3, order.end()));
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "ZARIM_GetSlotNumber"), 17);

  const std::vector<zsim_access> recorded = Accesses(r);
  ASSERT_EQ(recorded.size(), trace.size());
  EXPECT_GT(trace.size(), 1000u) << "the bring-up alone makes thousands";
  for (size_t i = 0; i < trace.size(); ++i) {
    const zsim_access &a = recorded[i], &b = trace[i];
    ASSERT_TRUE(a.addr == b.addr && a.value == b.value && a.write == b.write)
        << "access " << i << ": recorded " << a.addr << "/" << a.value << "/" << int(a.write)
        << ", the board saw " << b.addr << "/" << b.value << "/" << int(b.write);
  }
  // Every channel's buffers announced as they came, one count after the other.
  EXPECT_EQ(counts.size(), 17u);
  for (const auto& [channel, seen] : counts) {
    EXPECT_GE(seen.back(), 6u) << "channel " << channel;
    for (size_t i = 1; i < seen.size(); ++i)
      EXPECT_TRUE(seen[i] > seen[i - 1] || seen[i] == 0) << "channel " << channel;
  }
}

// Without a target, with a target that lacks a function, or where the recording cannot be
// written, the library reports the device as it would a missing driver.
TEST(Recorder, BoardCreationFailsCleanlyWhenTheRecorderCannotStart) {
  if (const char* child = std::getenv("REC_TEST_CHILD"); child != nullptr && *child == '1') {
    const std::string target = std::getenv("REC_TEST_TARGET"), file = std::getenv("REC_TEST_FILE");
    const bool none = target == "none";
    ASSERT_EQ(zrec::InstallRecorder(Built("zarimrec"), none ? "" : target, file, "").error, "");
    DeviceId board{0};
    EXPECT_NE(CreateDeviceInstance(&board), 0);
    const std::string message = GetErrorMessage();
    EXPECT_NE(message.find("Could not open device 0"), std::string::npos) << message;
    EXPECT_TRUE(!none || message.find("gle = 0002") != std::string::npos) << message;
    ReleaseDeviceInstance(&board);
    EXPECT_FALSE(none && fs::exists(file)) << "nothing to record without a target";
    return;
  }
  // Run from the program's directory (ctest's working directory), as cli_e2e runs the CLI.
  char program[4096];
  ASSERT_TRUE(tvx::os::ModulePath(reinterpret_cast<const void*>(&Built), program, sizeof program));
  const std::string name = fs::path(program).filename().string();
  const bool windows = name.size() > 4 && name.compare(name.size() - 4, 4, ".exe") == 0;
  tvx::test::TempDir dir;
  const std::string rec = (dir.path() / "rec.txt").string();
  const struct {
    const char* name;
    std::string target, file;
  } cases[] = {{"no target", "none", rec},
               {"incomplete", Built("zarimio", "incomplete"), rec},
               {"no file", Built("zarimio"), (dir.path() / "missing" / "rec.txt").string()}};
  tvx::test::ScopedEnv child("REC_TEST_CHILD", "1");
  for (const auto& c : cases) {
    tvx::test::ScopedEnv target("REC_TEST_TARGET", c.target), file("REC_TEST_FILE", c.file);
    const std::string command = (windows ? "" : "./") + name +
                                " --gtest_filter=Recorder.BoardCreationFails* >rec_child.txt 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0)
        << c.name << ":\n" << std::ifstream("rec_child.txt").rdbuf();
  }
}

}  // namespace
