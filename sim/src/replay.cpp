#include "replay.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <system_error>

#include "board.h"
#include "keys.h"
#include "stream/dma_master.h"

namespace zsim {

namespace {

constexpr uint32_t kGone = 0xFFFFFFFFu;   // what a read returns once the replay has stopped

std::vector<std::string> Split(const std::string& line) {
  std::vector<std::string> tokens;
  std::istringstream in(line);
  for (std::string token; in >> token;) tokens.push_back(token);
  return tokens;
}

bool ParseU64(const std::string& text, uint64_t* out) {
  if (text.empty() || text.size() > 19 || text.find_first_not_of("0123456789") != std::string::npos)
    return false;
  *out = std::strtoull(text.c_str(), nullptr, 10);
  return true;
}

// The data path's queries: every read of every channel's reader asks for the slot and the
// progress records, from as many threads as there are channels, as often as the timing makes
// it read. Neither changes the board, and no recording can fix their number or order, so they
// are no events of a replay (the virtual board answers them as always).
bool Query(const std::string& name) {
  return name == "ZARIM_GetSlotNumber" || name == "ZARIM_GetInterruptInfo";
}

std::string AccessText(bool write, uint32_t address, const uint32_t* value) {
  std::string text = std::string(write ? "W " : "R ") + FormatHex(address);
  if (value != nullptr) text += " " + FormatHex(*value);
  return text;
}

}  // namespace

std::string Replay::Load(const std::string& path, unsigned index) {
  Clear();
  refusal_ = Parse(path, index);
  return refusal_;
}

std::string Replay::Parse(const std::string& path, unsigned index) {
  if (path.empty() || path == "none") return "";
  std::string text;
  if (!ReadRegularFile(path.c_str(), &text)) return "cannot read " + path;

  std::vector<Event> events;
  std::vector<DataEvent> data;
  std::istringstream lines(text);
  std::string line;
  uint64_t number = 0;
  size_t line_number = 0;
  auto refuse = [&](const std::string& why) {
    return "line " + std::to_string(line_number) + ": " + why;
  };
  while (std::getline(lines, line)) {
    ++line_number;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line_number == 1) {
      if (line != "zarimrec 1") return "not a recording of version 1 (its first line: \"zarimrec 1\")";
      continue;
    }
    if (line.empty() || line[0] == '#') continue;
    if (number == 0 && (line.compare(0, 7, "target ") == 0 || line.compare(0, 4, "app ") == 0))
      continue;
    const std::vector<std::string> t = Split(line);
    Event e;
    if (t.size() < 4 || !ParseU64(t[0], &e.number) || !ParseU64(t[1], &e.time_us))
      return refuse("not an event");
    if (e.number != number + 1) return refuse("event " + t[0] + " where " + std::to_string(number + 1) + " was due");
    number = e.number;
    uint32_t board = 0;
    if (t[2] == "-") continue;   // DeviceSupportedCount: no board's
    if (!ParseU32(t[2], &board)) return refuse("board " + t[2] + " is not a board index");
    const std::string& kind = t[3];
    bool ok = true;
    if (kind == "R" || kind == "W" || kind == "D") {
      e.kind = kind == "R" ? Kind::kRead : kind == "W" ? Kind::kWrite : Kind::kData;
      ok = t.size() == 6 && ParseU32(t[4], &e.address) && ParseU32(t[5], &e.value);
    } else if (kind == "call") {
      e.kind = Kind::kCall;
      ok = t.size() >= 7 && ParseU32(t[5], &e.result) && ParseU32(t[6], &e.error);
      if (ok) e.name = t[4];
      for (size_t k = 7; ok && k < t.size(); ++k) {
        if (t[k].compare(0, 5, "addr=") == 0) {
          ok = ParseU32(t[k].substr(5), &e.address);
          e.has_address = true;
        } else if (t[k].compare(0, 6, "value=") == 0) {
          ok = ParseU32(t[k].substr(6), &e.value);
        }
      }
    } else {
      return refuse("unknown event kind " + kind);
    }
    if (!ok) return refuse("a " + kind + " event with fields it cannot have");
    if (board != index || (e.kind == Kind::kCall && Query(e.name))) continue;
    for (size_t k = 3; k < t.size(); ++k) e.shown += (k == 3 ? "" : " ") + t[k];
    if (e.kind == Kind::kData) {
      DataEvent d;
      d.anchor = events.size();
      d.delay_us = events.empty() || e.time_us < events.back().time_us ? 0 : e.time_us - events.back().time_us;
      d.event = std::move(e);
      data.push_back(std::move(d));
    } else {
      events.push_back(std::move(e));
    }
  }
  if (line_number == 0) return "not a recording of version 1 (the file is empty)";
  if (events.empty()) return "no events of board " + std::to_string(index);
  events_ = std::move(events);
  data_ = std::move(data);
  matched_at_.assign(events_.size(), 0);
  armed_ = true;
  return "";
}

void Replay::Clear() {
  StopData();
  std::lock_guard<std::mutex> lock(mutex_);
  armed_ = false;
  events_.clear();
  data_.clear();
  matched_at_.clear();
  next_ = 0;
  stopped_ = false;
  difference_.clear();
  played_ = 0;
  refusal_.clear();
}

const Replay::Event* Replay::Next(const std::string& actual) {
  if (stopped_) return nullptr;
  if (next_ < events_.size()) return &events_[next_];
  Differ(nullptr, actual);
  return nullptr;
}

void Replay::Matched(uint64_t now_us) {
  matched_at_[next_++] = now_us;
  changed_.notify_all();
}

void Replay::Differ(const Event* expected, const std::string& actual) {
  stopped_ = true;
  difference_ = expected == nullptr
                    ? "differs after the last event: expected nothing, got " + actual
                    : "differs at event " + std::to_string(expected->number) + ": expected " +
                          expected->shown + ", got " + actual;
  changed_.notify_all();
}

std::string ArmReplay(Board& board, const std::string& path) {
  board.model.SetAccessHook(nullptr);
  const std::string refusal = board.replay.Load(path, board.index);
  if (board.replay.armed()) {
    board.model.SetAccessHook([&board](bool write, uint32_t address, uint32_t value) {
      return board.replay.Access(write, address, value, board.model.NowUs());
    });
  }
  return refusal;
}

uint32_t Replay::Access(bool write, uint32_t address, uint32_t value, uint64_t now_us) {
  std::lock_guard<std::mutex> lock(mutex_);
  const std::string actual = AccessText(write, address, write ? &value : nullptr);
  const Event* e = Next(actual);
  if (e == nullptr) return kGone;
  const Kind kind = write ? Kind::kWrite : Kind::kRead;
  if (e->kind != kind || e->address != address || (write && e->value != value)) {
    Differ(e, actual);
    return kGone;
  }
  const uint32_t answer = write ? 0 : e->value;
  Matched(now_us);
  return answer;
}

uint32_t Replay::Call(const char* name, uint64_t now_us) {
  if (!armed_) return 0;
  std::lock_guard<std::mutex> lock(mutex_);
  const std::string actual = std::string("call ") + name;
  const Event* e = Next(actual);
  if (e == nullptr) return 0;
  if (e->kind != Kind::kCall || e->name != name) {
    Differ(e, actual);
    return 0;
  }
  Matched(now_us);
  if (e->result == 0) return 0;
  return e->error != 0 ? e->error : kErrorInvalidParameter;
}

uint32_t Replay::Port(bool write, uint32_t address, uint32_t* value, uint64_t now_us) {
  std::lock_guard<std::mutex> lock(mutex_);   // only called while armed
  const char* name = write ? "ZARIM_Write" : "ZARIM_Read";
  std::string actual = std::string("call ") + name + " addr=" + FormatHex(address);
  if (write) actual += " value=" + FormatHex(*value);
  const Event* e = Next(actual);
  if (e == nullptr) {
    if (!write) *value = kGone;
    return 0;
  }
  if (e->kind != Kind::kCall || e->name != name || !e->has_address || e->address != address ||
      (write && e->value != *value)) {
    Differ(e, actual);
    if (!write) *value = kGone;
    return 0;
  }
  Matched(now_us);
  if (e->result != 0) return e->error != 0 ? e->error : kErrorInvalidParameter;
  if (!write) *value = e->value;
  return 0;
}

std::string Replay::State() const {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!armed_) return refusal_.empty() ? "off" : "refused: " + refusal_;
  if (stopped_) return difference_;
  if (next_ == events_.size()) return "match: " + std::to_string(events_.size()) + " events";
  return "running: next event " + std::to_string(events_[next_].number) + ", " +
         std::to_string(next_) + " of " + std::to_string(events_.size()) + " matched";
}

std::string Replay::DataState() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return std::to_string(played_) + " of " + std::to_string(data_.size()) + " played";
}

void Replay::StartData(Board& board) {
  StopData();
  if (!armed_ || data_.empty() || !board.dma.mapped) return;
  const DmaMemory& dma = board.dma;
  ring_ = RingView(board);
  data_events_ = board.events;
  channels_ = std::min<uint32_t>(dma.channels, uint32_t(board.events.size()));
  payload_ = board.model.dma_master().settings().payload;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    data_stop_ = false;
  }
  try {
    data_thread_ = std::thread(&Replay::RunData, this, &board);
  } catch (const std::system_error&) {
    // Without the thread the application sees no data; its reads time out and say so.
  }
}

void Replay::StopData() {
  if (!data_thread_.joinable()) return;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    data_stop_ = true;
  }
  changed_.notify_all();
  data_thread_.join();
}

void Replay::RunData(Board* board) {
  std::vector<uint32_t> counts(channels_, 0);
  std::unique_lock<std::mutex> lock(mutex_);
  while (!data_stop_ && !stopped_ && played_ < data_.size()) {
    const DataEvent& d = data_[played_];
    if (next_ < d.anchor) {   // the application has not come that far
      changed_.wait(lock);
      continue;
    }
    const uint64_t due = (d.anchor == 0 ? 0 : matched_at_[d.anchor - 1]) + d.delay_us;
    // The board's clock is read under the board's lock, which must never be waited for here:
    // its holder may be stopping this thread.
    uint64_t now = 0;
    bool known = false;
    lock.unlock();
    {
      std::unique_lock<std::mutex> board_lock(board->mutex, std::try_to_lock);
      if (board_lock.owns_lock()) {
        now = board->model.NowUs();
        known = true;
      }
    }
    lock.lock();
    if (data_stop_ || stopped_) break;
    if (!known || now < due) {
      const uint64_t wait_us = known ? std::min<uint64_t>(due - now, 1000) : 100;
      changed_.wait_for(lock, std::chrono::microseconds(wait_us));
      continue;
    }
    const uint32_t c = d.event.address, count = d.event.value;
    ++played_;
    if (c >= channels_) continue;
    lock.unlock();
    if (count > counts[c]) {
      CompleteBuffers(ring_, payload_, c, counts[c], count);
      tvx::os::SignalEvent(data_events_[c]);
    } else {
      PublishCompleted(ring_.progress, c, count);   // the engine started again
    }
    counts[c] = count;
    lock.lock();
  }
}

}  // namespace zsim
