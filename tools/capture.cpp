#include "capture.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "hw/driver_parameters.h"
#include "platform/os.h"
#include "platform/stdio_ext.h"
#include "text.h"
#include "zarimsim_payload.h"

namespace tvx::cli {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kStartParameter = 0x40000000;
constexpr uint32_t kWaitMs = 250;       // each wait; the readers look at the stop flag between
constexpr double kDefaultSeconds = 2;

std::atomic<bool> interrupted{false};
extern "C" void OnInterrupt(int) { interrupted = true; }

struct Reader {
  unsigned channel = 0;
  uint32_t chunk = 0;               // bytes per ReadChannelData
  uint32_t buffer_size = 0;
  std::FILE* file = nullptr;
  ChannelTally tally;
  std::atomic<uint64_t> progress{0};
  std::atomic<bool> reading{false};   // about to make its first read
  std::atomic<bool> done{false};
};

// One channel, until told to stop or its byte count is reached. Every buffer received is
// accounted for as it arrives; a file gets exactly what ReadChannelData returned.
void ReadChannel(DeviceId board, Reader& r, uint64_t byte_limit, const std::atomic<bool>& stop,
                 bool verify) {
  std::vector<uint8_t> data(r.chunk);
  r.reading = true;
  while (!stop && (byte_limit == 0 || r.tally.bytes < byte_limit)) {
    uint32_t want = r.chunk;
    if (byte_limit != 0) want = uint32_t(std::min<uint64_t>(want, byte_limit - r.tally.bytes));
    uint32_t got = 0;
    const int32_t result = ReadChannelData(&board, r.channel, data.data(), want, &got, kWaitMs);
    if (result != -4 || got != 0) ++r.tally.results[result];
    if (result == 3 || result == 1 || result == -100) break;   // its text: the library's error text
    for (uint32_t at = 0; at < got; at += r.buffer_size)
      r.tally.Account(data.data() + at, std::min(r.buffer_size, got - at), r.channel, verify);
    if (r.file && got != 0) std::fwrite(data.data(), 1, got, r.file);
    r.progress = r.tally.bytes;
  }
  r.done = true;
}

// Ends every blocked read at once: each channel's terminate event, as another thread of an
// application would.
void Terminate(const std::vector<std::unique_ptr<Reader>>& readers) {
  for (const auto& r : readers) {
    char name[64];
    std::snprintf(name, sizeof name, "TORVIX.TerminateEvent%u", r->channel);
    if (os::Event event = os::CreateNamedEvent(name)) {
      os::SignalEvent(event);
      os::CloseEvent(event);
    }
  }
}

std::string Megabytes(double bytes) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f MB", bytes / 1e6);
  return text;
}

void ShowProgress(const std::vector<std::unique_ptr<Reader>>& readers, double seconds) {
  uint64_t total = 0;
  std::string channels;
  for (const auto& r : readers) {
    total += r->progress;
    if (readers.size() <= 8) channels += "  ch" + std::to_string(r->channel) + " " + Megabytes(double(r->progress));
  }
  std::fprintf(stderr, "\r%s, %.2f MB/s%s   ", Megabytes(double(total)).c_str(),
               seconds > 0 ? double(total) / 1e6 / seconds : 0.0, channels.c_str());
  std::fflush(stderr);
}

}  // namespace

void ChannelTally::Account(const uint8_t* data, uint32_t size, unsigned channel, bool verify) {
  bytes += size;
  ++buffers;
  uint64_t sequence = 0;
  if (!zsim_payload_sequence(data, size, &sequence)) {
    if (verify) ++errors;
    return;
  }
  sequenced = true;
  if (sequence > next_sequence) lost += sequence - next_sequence;
  if (sequence < next_sequence) ++errors;   // repeated or out of order
  next_sequence = std::max(next_sequence, sequence + 1);
  if (verify && zsim_payload_check(data, size, channel, sequence) != ZSIM_PAYLOAD_OK) ++errors;
}

std::string SummaryLine(unsigned channel, const ChannelTally& tally, double seconds, bool verify) {
  char head[160];
  std::snprintf(head, sizeof head, "channel %u: %llu bytes, %.2f MB/s, %llu buffers, ", channel,
                static_cast<unsigned long long>(tally.bytes),
                seconds > 0 ? double(tally.bytes) / 1e6 / seconds : 0.0,
                static_cast<unsigned long long>(tally.buffers));
  std::string line = head;
  line += tally.sequenced ? std::to_string(tally.lost) + " lost" : "lost unknown (no sequence numbers)";
  line += verify ? ", " + std::to_string(tally.errors) + " errors" : ", not verified";
  line += "; results";
  for (const auto& [result, times] : tally.results)
    line += " " + std::to_string(result) + " x" + std::to_string(times);
  if (tally.results.empty()) line += " none";
  return line;
}

std::string TotalLine(const CaptureTotals& all, double seconds, bool verify, double engine_bytes) {
  char text[256];
  std::snprintf(text, sizeof text, "%s: %.2f MB/s, %s, %s",
                all.channels == 1 ? "1 channel" : (std::to_string(all.channels) + " channels").c_str(),
                seconds > 0 ? double(all.bytes) / 1e6 / seconds : 0.0,
                all.sequenced ? (std::to_string(all.lost) + " lost").c_str() : "lost unknown",
                verify ? (std::to_string(all.errors) + " errors").c_str() : "not verified");
  std::string line = text;
  if (engine_bytes >= 0) {
    std::snprintf(text, sizeof text, "; the engine completed %.2f MB/s there, %s %.2f of it",
                  seconds > 0 ? engine_bytes / 1e6 / seconds : 0.0, verify ? "verified" : "read",
                  engine_bytes > 0 ? double(all.bytes) / engine_bytes : 0.0);
    line += text;
  }
  return line;
}

Json ChannelJson(unsigned channel, const ChannelTally& tally, double seconds, bool verify) {
  Json json = Json::object();
  json["channel"] = channel;
  json["bytes"] = tally.bytes;
  json["megabytes_per_second"] = seconds > 0 ? double(tally.bytes) / 1e6 / seconds : 0.0;
  json["buffers"] = tally.buffers;
  json["lost"] = tally.sequenced ? Json(tally.lost) : Json();
  json["errors"] = verify ? Json(tally.errors) : Json();
  Json& results = json["results"] = Json::array();
  for (const auto& [result, times] : tally.results) {
    Json& entry = results.emplace_back(Json::object());
    entry["result"] = result;
    entry["count"] = times;
  }
  return json;
}

int RunCapture(Session& s) { return Capture(s, nullptr); }

int Capture(Session& s, CaptureTotals* totals) {
  const Invocation& inv = s.inv();
  if (inv.bytes != 0 && inv.seconds != 0) {
    PrintError("capture: --bytes and --seconds exclude each other");
    return kExitUsage;
  }
  if (!inv.rate.empty()) {
    if (!s.sim().available()) {
      PrintError("capture --rate: " + s.sim().WhyUnavailable());
      return kExitUsage;
    }
    if (s.sim().Set(s.board(), "dma.rate", inv.rate) != 0) {
      PrintError("capture --rate " + inv.rate + ": refused by the virtual board");
      return kExitUsage;
    }
  }
  std::string failure;
  if (!s.BringUp(&failure)) {
    PrintError("board " + std::to_string(s.board()) + ": bring-up failed: " + failure);
    return kExitFailed;
  }

  BufferMap map{};
  MasterGetBuffers(s.id(), &map);
  const DriverParameters geometry = ReadDriverParameters(kDriverService);
  if (map.DescriptorCount == 0 || map.Descriptors == nullptr) {
    PrintError("capture: the board has no DMA buffers mapped");
    return kExitFailed;
  }
  const auto* descriptors = static_cast<const BufferDescriptor*>(map.Descriptors);
  const uint32_t buffer_size = descriptors[0].Size;
  const std::vector<uint32_t> channels = inv.channels.empty() ? std::vector<uint32_t>{0} : inv.channels;
  for (uint32_t c : channels) {
    if (c >= geometry.channel_count) {
      PrintError("capture: channel " + std::to_string(c) + " does not exist (the library builds " +
                 std::to_string(geometry.channel_count) + " channels)");
      return kExitUsage;
    }
  }
  if (MasterLoad(s.id(), &map) != 0) {
    PrintError("capture: " + LastLibraryText());
    return kExitFailed;
  }
  std::vector<std::unique_ptr<Reader>> readers;
  for (uint32_t c : channels) {
    auto r = std::make_unique<Reader>();
    r->channel = c;
    r->buffer_size = buffer_size;
    // BuffersPerCH - 1 buffers per read: the most one data event can announce without an
    // overrun, so a read that starts on an event takes all it announced; a read that ends in
    // the middle of an event drops the rest of it (the library moves on past them), and the
    // sequence numbers count those as lost.
    r->chunk = buffer_size * std::max<uint32_t>(1, geometry.buffers_per_channel - 1);
    if (!inv.output.empty()) {
      const std::string path = inv.output + ".ch" + std::to_string(c) + ".bin";
      r->file = std::fopen(path.c_str(), "wb");
      if (r->file == nullptr) {
        PrintError("capture: cannot write " + path);
        for (auto& open : readers) std::fclose(open->file);
        return kExitFailed;
      }
    }
    readers.push_back(std::move(r));
  }

  interrupted = false;
  auto previous = std::signal(SIGINT, OnInterrupt);
  std::atomic<bool> stop{false};
  const DeviceId board = *s.id();
  std::vector<std::thread> threads;
  for (auto& r : readers)
    threads.emplace_back(ReadChannel, board, std::ref(*r), inv.bytes, std::cref(stop), inv.verify);
  // The engine starts once every reader waits in its first read: a reader that came in after
  // the engine had completed BuffersPerCH - 1 buffers (at --rate max, at once) would begin
  // behind and lose them.
  const Clock::time_point spawned = Clock::now();
  while (Clock::now() - spawned < std::chrono::seconds(2) &&
         !std::all_of(readers.begin(), readers.end(), [](const auto& r) { return r->reading.load(); }))
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  const uint32_t start = kStartParameter;
  if (MasterStart(s.id(), &start) != 0) {
    PrintError("capture: " + LastLibraryText());
    stop = true;
    Terminate(readers);
    for (auto& t : threads) t.join();
    std::signal(SIGINT, previous);
    for (auto& r : readers)
      if (r->file) std::fclose(r->file);
    return kExitFailed;
  }
  const Clock::time_point began = Clock::now();

  const double limit = inv.bytes != 0 ? 0 : (inv.seconds != 0 ? inv.seconds : kDefaultSeconds);
  const bool terminal = os::IsTerminal(stderr);
  auto last_shown = began;
  for (;;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const double elapsed = std::chrono::duration<double>(Clock::now() - began).count();
    const bool all_done = std::all_of(readers.begin(), readers.end(), [](const auto& r) { return r->done.load(); });
    if (all_done || interrupted || (limit > 0 && elapsed >= limit)) break;
    if (terminal && Clock::now() - last_shown >= std::chrono::milliseconds(500)) {
      ShowProgress(readers, elapsed);
      last_shown = Clock::now();
    }
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - began).count();
  stop = true;
  MasterStop(s.id());
  Terminate(readers);
  for (auto& t : threads) t.join();
  std::signal(SIGINT, previous);
  if (terminal) std::fprintf(stderr, "\r%*s\r", 100, "");

  int status = kExitOk;
  if (interrupted) std::printf("interrupted after %.2f s\n", seconds);
  Json& facts = s.json()["capture"] = Json::object();
  facts["seconds"] = seconds;
  facts["interrupted"] = interrupted.load();
  facts["verified"] = inv.verify;
  Json& list = facts["channels"] = Json::array();
  CaptureTotals all;
  for (const auto& r : readers) {
    if (r->file) std::fclose(r->file);
    const ChannelTally& t = r->tally;
    std::printf("%s\n", SummaryLine(r->channel, t, seconds, inv.verify).c_str());
    list.emplace_back(ChannelJson(r->channel, t, seconds, inv.verify));
    ++all.channels;
    all.bytes += t.bytes;
    all.lost += t.lost;
    all.errors += t.errors;
    all.sequenced = all.sequenced && t.sequenced;
    if (totals != nullptr) {
      ++totals->channels;
      totals->bytes += t.bytes;
      totals->lost += t.lost;
      totals->errors += t.errors;
    }
    const bool failed_read = t.results.count(3) || t.results.count(1) || t.results.count(-100);
    // -1: an event's buffers were dropped. -2 alone only says the reader came in late (the
    // sequence numbers tell whether anything was lost).
    const bool overran = t.results.count(-1) != 0;
    if (t.lost != 0 || t.errors != 0 || failed_read || overran) status = kExitFailed;
    if (failed_read) PrintError("capture: channel " + std::to_string(r->channel) + ": " + LastLibraryText());
  }
  // What the virtual board's engine completed on the same channels while they were read, so
  // that a capture at --rate max shows whether the readers kept up with it.
  uint64_t completed = 0;
  bool engine_known = s.sim().available();
  for (const auto& r : readers) {
    const std::string key = "dma.ch." + std::to_string(r->channel) + ".completed";
    const char* text = engine_known ? s.sim().Get(s.board(), key.c_str()) : nullptr;
    engine_known = text != nullptr;
    if (engine_known) completed += std::strtoull(text, nullptr, 10);
  }
  const double engine_bytes = double(completed) * buffer_size;
  std::printf("%s\n", TotalLine(all, seconds, inv.verify, engine_known ? engine_bytes : -1).c_str());
  facts["megabytes_per_second"] = seconds > 0 ? double(all.bytes) / 1e6 / seconds : 0.0;
  Json& engine = facts["engine"];
  if (engine_known) {
    engine = Json::object();
    engine["megabytes_per_second"] = seconds > 0 ? engine_bytes / 1e6 / seconds : 0.0;
    engine["fraction_read"] = engine_bytes > 0 ? double(all.bytes) / engine_bytes : 0.0;
  }
  return status;
}

}  // namespace tvx::cli
