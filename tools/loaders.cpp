// fpga, ram and sim: the loading commands. Each brings the board up, makes its library calls
// and, on the virtual board, shows what the board made of them.
#include "loaders.h"

#include <chrono>
#include <cctype>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/stdio_ext.h"
#include "text.h"

namespace tvx::cli {
namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// The file's size, or -1 when it cannot be had (the library will say why).
int64_t FileSize(const std::string& path) {
  std::error_code error;
  const auto size = std::filesystem::file_size(path, error);
  return error ? -1 : static_cast<int64_t>(size);
}

std::string SimValue(const Session& s, const std::string& key) {
  const char* value = s.sim().available() ? s.sim().Get(s.board(), key.c_str()) : nullptr;
  return value != nullptr ? value : "";
}

bool BringUpOrSay(Session& s) {
  std::string failure;
  if (s.BringUp(&failure)) return true;
  PrintError("board " + std::to_string(s.board()) + ": bring-up failed: " + failure);
  return false;
}

// While a long load runs, a line on stderr (a terminal only) shows the words sent so far and
// the rate. The count comes from the virtual board, which sees every word arrive; elsewhere
// nothing can be watched from outside the call and the line shows the time only.
class ProgressLine {
 public:
  ProgressLine(const Session& s, std::string device, uint64_t total)
      : session_(s), device_(std::move(device)), total_(total) {
    if (!os::IsTerminal(stderr)) return;
    key_ = DeviceKey(device_);
    if (!key_.empty() && s.sim().available()) key_ = "fpga." + key_ + ".words";
    else key_.clear();
    thread_ = std::thread([this] { Run(); });
  }
  ~ProgressLine() { Stop(); }

  void Stop() {
    if (!thread_.joinable()) return;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stop_ = true;
    }
    wake_.notify_all();
    thread_.join();
    if (shown_) std::fprintf(stderr, "\r%*s\r", int(width_), "");
  }

 private:
  void Run() {
    const auto start = Clock::now();
    std::unique_lock<std::mutex> lock(mutex_);
    // Short loads finish before anything is shown.
    if (wake_.wait_for(lock, std::chrono::milliseconds(500), [this] { return stop_; })) return;
    do {
      uint64_t words = 0;
      if (!key_.empty()) {
        const std::string text = SimValue(session_, key_);
        ParseUnsigned(text, ~uint64_t{0}, &words);
      }
      const std::string line =
          key_.empty() ? device_ + ": loading, " + std::to_string(int(SecondsSince(start))) + " s"
                       : ProgressText(device_, words, total_, SecondsSince(start));
      if (line.size() > width_) width_ = line.size();
      std::fprintf(stderr, "\r%-*s", int(width_), line.c_str());
      std::fflush(stderr);
      shown_ = true;
    } while (!wake_.wait_for(lock, std::chrono::milliseconds(250), [this] { return stop_; }));
  }

  const Session& session_;
  std::string device_;
  uint64_t total_;
  std::string key_;
  std::thread thread_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stop_ = false;
  bool shown_ = false;
  size_t width_ = 0;
};

}  // namespace

bool LoadFpga(Session& s, const std::string& device, const std::string& file) {
  const int64_t size = FileSize(file);
  // What the library sends: the file in 32-bit words, then two zero words.
  const uint64_t words = size < 0 ? 0 : (uint64_t(size) + 3) / 4 + 2;
  const std::string before = LastLibraryText();
  const auto start = Clock::now();
  int32_t code;
  {
    ProgressLine progress(s, device, words);
    code = FPGALoad(s.id(), device.c_str(), file.c_str());
  }
  const double seconds = SecondsSince(start);
  const std::string text = LastLibraryText();
  if (code != 0) {
    PrintError("fpga load " + device + ": " + text);
    return false;
  }
  // The export answers 0 also after it caught an exception; only its text tells.
  if (text != before && text.find("exception") != std::string::npos) {
    PrintError("fpga load " + device + ": " + text);
    return false;
  }
  std::printf("%s: loaded from %s: %lld bytes, %llu words sent in %.2f s (%.0f words/s)\n",
              device.c_str(), file.c_str(), static_cast<long long>(size),
              static_cast<unsigned long long>(words), seconds, seconds > 0 ? words / seconds : 0.0);
  const std::string key = DeviceKey(device);
  if (s.sim().available() && !key.empty()) {
    const std::string stem = "fpga." + key + ".";
    std::printf("  virtual board: %s, %s words received, image %s bytes, CRC-32 %s\n",
                SimValue(s, stem + "state").c_str(), SimValue(s, stem + "words").c_str(),
                SimValue(s, stem + "bytes").c_str(), SimValue(s, stem + "crc").c_str());
  }
  return true;
}

namespace {

int UsageOf(const char* command, const std::string& what) {
  PrintError(std::string(command) + ": " + what + "; see 'torvixe " + command + " --help'");
  return kExitUsage;
}

// Runs one simulator action; false after saying why it failed.
bool SimAction(Session& s, const std::string& action, const std::string& argument) {
  int32_t code = 0;
  const std::string before = LastLibraryText();
  if (action == "load") {
    code = SimulatorLoad(s.id(), argument.c_str());
    if (code == 1 || code == 2) {
      // The export leaves no text behind for these.
      PrintError("sim load " + argument + ": code " + std::to_string(code) +
                 (code == 1 ? " (the pattern file could not be opened or read)"
                            : " (no memory for the pattern)"));
      return false;
    }
  } else if (action == "on" || action == "off") {
    const uint32_t on = action == "on" ? 1 : 0;
    code = SimulatorControl(s.id(), &on);
  } else {
    double value = 0;
    ParseNumber(argument, &value);   // checked before anything ran
    code = action == "carrier" ? SimulatorSetCarrier(s.id(), &value)
                               : SimulatorSetTiming(s.id(), &value);
  }
  if (code != 0) {
    const std::string text = LastLibraryText();
    PrintError("sim " + action + (argument.empty() ? "" : " " + argument) + ": code " +
               std::to_string(code) + (text != before ? ": " + text : ""));
    return false;
  }
  return true;
}

}  // namespace

bool ParseNumber(std::string_view text, double* out) {
  const std::string s(text);
  if (s.empty() || std::isspace(static_cast<unsigned char>(s[0]))) return false;
  char* end = nullptr;
  const double value = std::strtod(s.c_str(), &end);
  if (end != s.c_str() + s.size() || !std::isfinite(value)) return false;
  *out = value;
  return true;
}

std::string DeviceKey(std::string_view name) {
  std::string folded;
  for (char c : name) folded += (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
  return folded == "dem" || folded == "dec" || folded == "rs" ? folded : "";
}

std::string ProgressText(const std::string& device, uint64_t words, uint64_t total, double seconds) {
  char text[160];
  const double rate = seconds > 0 ? words / seconds : 0;
  if (total != 0)
    std::snprintf(text, sizeof text, "%s: %llu of %llu words sent (%.0f%%), %.0f words/s",
                  device.c_str(), static_cast<unsigned long long>(words),
                  static_cast<unsigned long long>(total), 100.0 * words / total, rate);
  else
    std::snprintf(text, sizeof text, "%s: %llu words sent, %.0f words/s", device.c_str(),
                  static_cast<unsigned long long>(words), rate);
  return text;
}

int RunFpga(Session& s) {
  const auto& args = s.inv().args;
  if (args[0] != "load") return UsageOf("fpga", "unknown action '" + args[0] + "'");
  std::vector<std::pair<std::string, std::string>> loads;
  if (!s.inv().all_dir.empty()) {
    if (args.size() != 1) return UsageOf("fpga", "--all takes no DEVICE or FILE");
    const std::filesystem::path dir(s.inv().all_dir);
    for (const char* device : {"DEM", "DEC", "RS"})
      loads.emplace_back(device, (dir / (DeviceKey(device) + ".bin")).string());
  } else {
    if (args.size() != 3) return UsageOf("fpga", "load needs DEVICE and FILE (or --all DIR)");
    loads.emplace_back(args[1], args[2]);
  }
  if (!BringUpOrSay(s)) return kExitFailed;
  // Every device is tried: one that fails says so and the others still load.
  int status = kExitOk;
  for (const auto& [device, file] : loads)
    if (!LoadFpga(s, device, file)) status = kExitFailed;
  return status;
}

int RunRam(Session& s) {
  const auto& args = s.inv().args;
  if (args[0] != "load") return UsageOf("ram", "unknown action '" + args[0] + "'");
  if (!BringUpOrSay(s)) return kExitFailed;
  const std::string& file = args[1];
  if (RAMLoad(s.id(), file.c_str(), 0) != 0) {
    PrintError("ram load: " + LastLibraryText());
    return kExitFailed;
  }
  const int64_t size = FileSize(file);
  std::printf("RAM: loaded from %s: %lld bytes, %lld words written\n", file.c_str(),
              static_cast<long long>(size), static_cast<long long>(size / 2));
  if (s.sim().available())
    std::printf("  virtual board: %s RAM words written since reset, %s dropped\n",
                SimValue(s, "ram.writes").c_str(), SimValue(s, "ram.dropped").c_str());
  return kExitOk;
}

int RunSim(Session& s) {
  const auto& args = s.inv().args;
  // Check the whole line before touching the board.
  std::vector<std::pair<std::string, std::string>> actions;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& action = args[i];
    if (action == "on" || action == "off") {
      actions.emplace_back(action, "");
      continue;
    }
    if (action != "load" && action != "carrier" && action != "rate")
      return UsageOf("sim", "unknown action '" + action + "'");
    if (i + 1 >= args.size()) return UsageOf("sim", action + " needs a value");
    const std::string& value = args[++i];
    double number = 0;
    if (action != "load" && !ParseNumber(value, &number))
      return UsageOf("sim", "invalid " + std::string(action == "carrier" ? "frequency" : "rate") +
                                " '" + value + "' (a decimal number, e.g. 1e6)");
    actions.emplace_back(action, value);
  }
  if (!BringUpOrSay(s)) return kExitFailed;
  for (const auto& [action, value] : actions)
    if (!SimAction(s, action, value)) return kExitFailed;
  if (s.sim().available())
    std::printf("virtual board: simulator %s, control word %s (divider %s, pattern length %s "
                "bytes), carrier word %s, %s pattern words received\n",
                SimValue(s, "sim.on") == "1" ? "on" : "off", SimValue(s, "sim.control").c_str(),
                SimValue(s, "sim.divider").c_str(), SimValue(s, "sim.length").c_str(),
                SimValue(s, "sim.carrier").c_str(), SimValue(s, "sim.pattern.words").c_str());
  return kExitOk;
}

}  // namespace tvx::cli
