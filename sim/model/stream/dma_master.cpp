// The bus master's descriptor table and control word (see dma_master.h), the engine's keys and
// the check that decides whether a start can run.
#include "stream/dma_master.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "devices.h"
#include "regs.h"
#include "zarimsim_payload.h"

namespace zsim {
namespace {

constexpr uint32_t kBusAddressWord = 0;
constexpr uint32_t kClearWord = 1;
constexpr uint32_t kGeometryWord = 2;
constexpr uint32_t kControlWord = 3;
constexpr uint32_t kSelectWord = 5;
constexpr uint32_t kRun = 0x20000000;
constexpr uint32_t kValid = 1;
constexpr uint32_t kBufferBits = 5;   // the select's buffer field: bits 0-4

// A few MB/s per channel with 64 KiB buffers: data arrives at a pace a reader can follow
// while the engine costs little.
constexpr uint32_t kDefaultRate = 50;
constexpr uint32_t kMaxRate = 1000000;
constexpr uint32_t kMaxBurst = 65536;

uint32_t Select(uint32_t channel, uint32_t buffer) { return channel << kBufferBits | buffer; }
uint32_t GeometryBuffers(uint32_t word) { return (word >> 25) + 1; }
uint64_t GeometrySize(uint32_t word) { return (uint64_t(word & 0x1FFFFFF) + 1) * 128; }

// "all", "none", or ranges like "0-3,5": what dma.enable takes and reports.
bool ParseChannels(const std::string& text, std::bitset<kDmaMaxChannels>* out) {
  std::bitset<kDmaMaxChannels> set;
  if (text == "all") {
    out->set();
    return true;
  }
  if (text == "none" || text.empty()) {
    out->reset();
    return true;
  }
  size_t pos = 0;
  while (pos <= text.size()) {
    size_t end = text.find(',', pos);
    if (end == std::string::npos) end = text.size();
    const std::string item = text.substr(pos, end - pos);
    const size_t dash = item.find('-');
    uint32_t first, last;
    if (!ParseU32(item.substr(0, dash), &first)) return false;
    last = first;
    if (dash != std::string::npos && !ParseU32(item.substr(dash + 1), &last)) return false;
    if (first > last || last >= kDmaMaxChannels) return false;
    for (uint32_t c = first; c <= last; ++c) set.set(c);
    pos = end + 1;
  }
  *out = set;
  return true;
}

std::string ChannelsText(const std::bitset<kDmaMaxChannels>& set) {
  if (set.all()) return "all";
  if (set.none()) return "none";
  std::string text;
  for (uint32_t c = 0; c < kDmaMaxChannels;) {
    if (!set[c]) {
      ++c;
      continue;
    }
    uint32_t last = c;
    while (last + 1 < kDmaMaxChannels && set[last + 1]) ++last;
    text += (text.empty() ? "" : ",") + FormatDecimal(c);
    if (last != c) text += "-" + FormatDecimal(last);
    c = last + 1;
  }
  return text;
}

// The channel of a key "dma.ch.N.<what>", when N is a channel number.
bool ChannelKey(const std::string& key, const char* what, uint32_t* channel) {
  static const std::string prefix = "dma.ch.";
  const std::string suffix = std::string(".") + what;
  if (key.size() <= prefix.size() + suffix.size() || key.compare(0, prefix.size(), prefix) != 0 ||
      key.compare(key.size() - suffix.size(), suffix.size(), suffix) != 0)
    return false;
  const std::string number = key.substr(prefix.size(), key.size() - prefix.size() - suffix.size());
  return number.find_first_not_of("0123456789") == std::string::npos &&
         ParseU32(number, channel) && *channel < kDmaMaxChannels;
}

}  // namespace

DmaMaster::DmaMaster(unsigned board_index) : DeviceModel("dma", board_index) {
  keys().AddChoice("dma.payload", &payload_, ZSIM_PAYLOAD_PRBS, {"prbs", "counter", "zero"});
  keys().AddNumber("fault.dma_burst", &burst_, 0, 0, kMaxBurst);
  keys().AddNumber("fault.dma_drop_event", &drop_event_, 0, 0, 0xFFFFFFFF);
  OnWrite(Int(kSelectWord), [this](uint32_t value) { select_ = value; });
  OnWrite(Int(kBusAddressWord), [this](uint32_t value) { addresses_[select_] = value; });
  // The channel's geometry is cleared before it is set, so a geometry written before the clear
  // (the two writes swapped) leaves the channel without one.
  OnWrite(Int(kClearWord), [this](uint32_t) { geometry_.erase(select_ >> kBufferBits); });
  OnWrite(Int(kGeometryWord),
          [this](uint32_t value) { geometry_[select_ >> kBufferBits] = value; });
  OnWrite(Int(kControlWord), [this](uint32_t value) {
    control_ = value;
    if (listener_)
      listener_(Change::kControl);
    else
      state_ = run_requested() ? "refused: memory not mapped" : "stopped";
  });
  ResetState();
}

bool DmaMaster::run_requested() const { return (control_ & kRun) != 0; }

DmaSettings DmaMaster::settings() const {
  DmaSettings s;
  s.rate = rate_max_ ? 0 : rate_;
  s.enabled = enabled_;
  s.payload = payload_;
  s.stall = stall_;
  s.stall_after = stall_after_;
  s.burst = burst_ == 0 ? 1 : burst_;
  s.drop_event = drop_event_;
  return s;
}

void DmaMaster::ClearStatus() {
  for (uint32_t c = 0; c < kDmaMaxChannels; ++c) {
    earlier_completed_[c] += status_[c].completed.exchange(0, std::memory_order_relaxed);
    earlier_signalled_ += status_[c].signalled.exchange(0, std::memory_order_relaxed);
  }
}

uint64_t DmaMaster::completed_since_reset(uint32_t channel) const {
  return earlier_completed_[channel] + status_[channel].completed.load(std::memory_order_relaxed);
}

uint64_t DmaMaster::signalled_since_reset() const {
  uint64_t total = earlier_signalled_;
  for (const ChannelStatus& s : status_) total += s.signalled.load(std::memory_order_relaxed);
  return total;
}

std::string DmaMaster::Check(const DmaRing& ring, std::vector<uint32_t>* runnable) const {
  char text[160];
  runnable->clear();
  if (geometry_.empty()) {
    if (addresses_.empty()) return "descriptor table not programmed";
    return "no channel has its geometry (INT word 2)";
  }
  const uint32_t buffers = ring.buffers_per_channel;
  for (const auto& [channel, word] : geometry_) {
    if (channel >= ring.channels) {
      std::snprintf(text, sizeof text, "channel %u programmed, %u mapped", unsigned(channel),
                    unsigned(ring.channels));
      return text;
    }
    if (GeometryBuffers(word) != buffers) {
      std::snprintf(text, sizeof text, "channel %u: geometry of %u buffers, %u mapped",
                    unsigned(channel), unsigned(GeometryBuffers(word)), unsigned(buffers));
      return text;
    }
    if (GeometrySize(word) != ring.buffer_size) {
      std::snprintf(text, sizeof text, "channel %u: buffer size %llu programmed, %u mapped",
                    unsigned(channel), static_cast<unsigned long long>(GeometrySize(word)),
                    unsigned(ring.buffer_size));
      return text;
    }
    // Anything selected beyond the channel's ring is a select the driver got wrong.
    auto stray = addresses_.lower_bound(Select(channel, 0) + buffers);
    if (stray != addresses_.end() && stray->first < Select(channel + 1, 0)) {
      std::snprintf(text, sizeof text, "channel %u buffer %u: beyond its %u buffers",
                    unsigned(channel), unsigned(stray->first & 31), unsigned(buffers));
      return text;
    }
    for (uint32_t k = 0; k < buffers; ++k) {
      const size_t i = size_t(channel) * buffers + k;
      auto it = addresses_.find(Select(channel, k));
      if (it == addresses_.end()) {
        std::snprintf(text, sizeof text, "channel %u buffer %u: no bus address", unsigned(channel),
                      unsigned(k));
        return text;
      }
      if ((it->second & ~kValid) != ring.bus[i] || (it->second & kValid) == 0) {
        std::snprintf(text, sizeof text,
                      "channel %u buffer %u: bus address 0x%08X is not descriptor %u's "
                      "(0x%08X | 1)",
                      unsigned(channel), unsigned(k), unsigned(it->second), unsigned(i),
                      unsigned(ring.bus[i]));
        return text;
      }
    }
    runnable->push_back(channel);
  }
  return "";
}

KeyResult DmaMaster::Set(const std::string& key, const std::string& value) {
  KeyResult result = KeyResult::kOk;
  if (key == "dma.rate") {
    uint32_t rate;
    if (value == "max") {
      rate_max_ = true;
    } else if (ParseU32(value, &rate) && rate >= 1 && rate <= kMaxRate) {
      rate_ = rate;
      rate_max_ = false;
    } else {
      result = KeyResult::kBadValue;
    }
  } else if (key == "dma.enable") {
    if (!ParseChannels(value, &enabled_)) result = KeyResult::kBadValue;
  } else if (key == "fault.dma_stall_after") {
    uint32_t after;
    if (value == "none" || value.empty()) {
      stall_ = false;
    } else if (ParseU32(value, &after)) {
      stall_ = true;
      stall_after_ = after;
    } else {
      result = KeyResult::kBadValue;
    }
  } else {
    result = DeviceModel::Set(key, value);
  }
  if (result == KeyResult::kOk) Notify(Change::kSettings);
  return result;
}

bool DmaMaster::Get(const std::string& key, std::string* value) const {
  uint32_t channel;
  if (key == "dma.rate") *value = rate_max_ ? "max" : FormatDecimal(rate_);
  else if (key == "dma.enable") *value = ChannelsText(enabled_);
  else if (key == "fault.dma_stall_after") *value = stall_ ? FormatDecimal(stall_after_) : "none";
  else if (key == "dma.state") *value = state_;
  else if (key == "dma.table") *value = TableText();
  else if (ChannelKey(key, "completed", &channel))
    *value = FormatDecimal(status_[channel].completed.load());
  else if (ChannelKey(key, "signalled", &channel))
    *value = FormatDecimal(status_[channel].signalled.load());
  else return DeviceModel::Get(key, value);
  return true;
}

void DmaMaster::KeyNames(std::vector<std::string>* out) const {
  out->push_back("dma.rate");
  out->push_back("dma.enable");
  DeviceModel::KeyNames(out);
  out->push_back("fault.dma_stall_after");
}

void DmaMaster::ResetState() {
  Notify(Change::kReset);   // first: the engine stops before its status is cleared
  rate_ = kDefaultRate;
  rate_max_ = false;
  enabled_.set();
  stall_ = false;
  stall_after_ = 0;
  select_ = control_ = 0;
  addresses_.clear();
  geometry_.clear();
  state_ = "stopped";
  ClearStatus();
  std::fill(std::begin(earlier_completed_), std::end(earlier_completed_), 0);
  earlier_signalled_ = 0;
}

void DmaMaster::Notify(Change change) const {
  if (listener_) listener_(change);
}

// "<channel>: <buffers> x <size> <address of buffer 0> ...; ..." in channel order, each address
// as written (valid bit included), "-" for a buffer never given one; a channel without a
// geometry shows "-" in its place. "none" before anything was programmed.
std::string DmaMaster::TableText() const {
  std::map<uint32_t, uint32_t> buffers;   // channel -> buffers to list
  for (const auto& [channel, word] : geometry_) buffers[channel] = GeometryBuffers(word);
  for (const auto& [select, address] : addresses_) {
    uint32_t& n = buffers[select >> kBufferBits];
    if (n < (select & 31) + 1) n = (select & 31) + 1;
  }
  if (buffers.empty()) return "none";
  std::string text;
  char field[48];
  for (const auto& [channel, count] : buffers) {
    if (!text.empty()) text += "; ";
    text += FormatDecimal(channel) + ":";
    auto g = geometry_.find(channel);
    if (g == geometry_.end()) {
      text += " -";
    } else {
      std::snprintf(field, sizeof field, " %u x %llu", unsigned(GeometryBuffers(g->second)),
                    static_cast<unsigned long long>(GeometrySize(g->second)));
      text += field;
    }
    for (uint32_t k = 0; k < count; ++k) {
      auto a = addresses_.find(Select(channel, k));
      text += a == addresses_.end() ? std::string(" -") : " " + FormatHex(a->second);
    }
  }
  return text;
}

std::unique_ptr<DeviceModel> MakeDmaMaster(unsigned board_index) {
  return std::make_unique<DmaMaster>(board_index);
}

}  // namespace zsim
