// The board model: routes each register access to the block that models it (or to plain
// storage), keeps the board's keys and records the trace. No threads, no traps: the virtual
// board's core and the library's unit tests call it under their own serialisation.
#include "board_model.h"

#include <map>
#include <memory>
#include <stdexcept>
#include <unordered_map>

#include "devices.h"
#include "keys.h"
#include "platform/os.h"
#include "stream/dma_master.h"
#include "trace.h"

namespace zsim {

namespace {
constexpr uint32_t kDefaultBarSize = 0x10000;
constexpr uint32_t kMaxBarSize = 0x1000000;
constexpr uint32_t kDefaultBufferSize = 65536;
constexpr uint32_t kMaxBufferSize = 0x1000000;
constexpr uint32_t kDefaultTraceMax = 1000000;
constexpr uint32_t kMaxTraceMax = 100000000;
constexpr uint32_t kNoDevice = 0xFFFFFFFFu;   // what a read outside the BAR returns
constexpr uint32_t kMaxU32 = 0xFFFFFFFFu;

const char* const kFaultKeys[] = {"fault.open",     "fault.memory_map", "fault.memory_unmap",
                                  "fault.bar_map",  "fault.bar_unmap",  "fault.port",
                                  "fault.interrupt_info"};
constexpr size_t kFaultCount = sizeof kFaultKeys / sizeof kFaultKeys[0];
}  // namespace

struct BoardModel::State {
  explicit State(unsigned i) : index(i), trace(kDefaultTraceMax) {
    keys.AddNumber("bar.size", &bar_size, kDefaultBarSize, 4, kMaxBarSize, 4, true);
    keys.AddChoice("mmio", &mmio, 0, {"trap", "passive"});
    keys.AddNumber("slot", &slot, 3 + i, 0, kMaxU32);
    for (size_t f = 0; f < kFaultCount; ++f) keys.AddNumber(kFaultKeys[f], &faults[f], 0, 0, kMaxU32);
    keys.AddNumber("dma.buffer_size", &buffer_size, kDefaultBufferSize, 128, kMaxBufferSize, 128);
    keys.AddNumber("trace.max", &trace_max, kDefaultTraceMax, 0, kMaxTraceMax);
    keys.AddChoice("clock", &clock, 0, {"system", "manual"});

    devices = MakeDevices(i);
    for (auto& device : devices)
      for (auto& [address, reg] : device->registers()) {
        if (reg.read) {
          auto& claims = readers[address];
          for (const ReadClaim& claim : claims)
            if ((claim.bits & reg.read_bits) != 0)
              throw std::logic_error("two board blocks answer the same bits of register " +
                                     FormatHex(address));
          claims.push_back(ReadClaim{reg.read_bits, &reg.read});
        }
        if (reg.write) writers[address].push_back(&reg.write);
      }
    for (auto& device : devices)
      if (auto* master = dynamic_cast<DmaMaster*>(device.get())) dma = master;
    if (dma == nullptr) throw std::logic_error("the board has no bus master");
    storage.assign(bar_size / 4, 0);
  }

  // The register word an access at `address` reaches; false outside the BAR.
  bool Word(uint32_t address, uint32_t* word) const {
    *word = address & ~3u;
    return *word < bar_size && bar_size - *word >= 4;
  }

  uint32_t ReadWord(uint32_t address, bool peek) const {
    uint32_t word;
    if (!Word(address, &word)) return kNoDevice;
    auto forced_it = forced.find(word);
    if (forced_it != forced.end()) return forced_it->second;
    const uint32_t stored = storage[word / 4];
    auto reader = readers.find(word);
    if (reader == readers.end()) return stored;
    uint32_t value = stored;
    for (const ReadClaim& claim : reader->second)
      value = (value & ~claim.bits) | ((*claim.read)(stored, peek) & claim.bits);
    return value;
  }

  void WriteWord(uint32_t address, uint32_t value) {
    uint32_t word;
    if (!Word(address, &word)) return;
    storage[word / 4] = value;
    auto observers = writers.find(word);
    if (observers != writers.end())
      for (const DeviceModel::WriteFn* write : observers->second) (*write)(value);
  }

  // The address of a key "reg.ADDR", when it names an aligned word inside the BAR.
  bool RegisterKey(const std::string& key, uint32_t* word) const {
    if (key.compare(0, 4, "reg.") != 0) return false;
    uint32_t address;
    if (!ParseU32(key.substr(4), &address) || address % 4 != 0) return false;
    return Word(address, word);
  }

  void ApplyBarSize() {
    storage.resize(bar_size / 4, 0);
    for (auto it = forced.begin(); it != forced.end();)
      it = it->first + 4 > bar_size ? forced.erase(it) : std::next(it);
  }

  unsigned index;
  uint32_t bar_size = kDefaultBarSize;
  uint32_t mmio = 0;
  uint32_t slot = 0;
  uint32_t faults[kFaultCount] = {};
  uint32_t buffer_size = kDefaultBufferSize;
  uint32_t trace_max = kDefaultTraceMax;
  uint32_t clock = 0;           // 0 system, 1 manual
  uint64_t manual_us = 0;       // the manual clock's time
  std::function<uint64_t()> time_source;
  AccessHook hook;
  KeySet keys;

  std::vector<uint32_t> storage;            // plain storage, one entry per BAR word
  std::map<uint32_t, uint32_t> forced;      // reg.0xADDR
  std::vector<std::unique_ptr<DeviceModel>> devices;
  DmaMaster* dma = nullptr;
  // One block at most answers each bit of a register's reads (DEM word 6 carries the ADC's
  // serial data and status bits of other blocks); bits nobody claims are plain storage. Every
  // block that claims a register's writes sees them, in table order (the FPGA's registers
  // alias: DEM word 0 is a configuration port while the FPGA is being loaded and the RAM's
  // address register afterwards).
  struct ReadClaim {
    uint32_t bits;
    const DeviceModel::ReadFn* read;
  };
  std::unordered_map<uint32_t, std::vector<ReadClaim>> readers;
  std::unordered_map<uint32_t, std::vector<const DeviceModel::WriteFn*>> writers;
  zsim::Trace trace;
};

BoardModel::BoardModel(unsigned index) : state_(new State(index)) {
  for (auto& device : state_->devices) device->board_ = this;
}

BoardModel::~BoardModel() { delete state_; }

uint32_t BoardModel::Read(uint32_t address) {
  const uint32_t value = state_->hook ? state_->hook(false, address, 0) : state_->ReadWord(address, false);
  state_->trace.Record(address, value, false);
  return value;
}

void BoardModel::Write(uint32_t address, uint32_t value) {
  if (state_->hook)
    state_->hook(true, address, value);
  else
    state_->WriteWord(address, value);
  state_->trace.Record(address, value, true);
}

void BoardModel::SetAccessHook(AccessHook hook) { state_->hook = std::move(hook); }

void BoardModel::TraceAccess(uint32_t address, uint32_t value, bool write) {
  state_->trace.Record(address, value, write);
}

uint32_t BoardModel::Peek(uint32_t address) const { return state_->ReadWord(address, true); }

int BoardModel::Set(const std::string& key, const std::string& value) {
  State& s = *state_;
  switch (s.keys.Set(key, value)) {
    case KeyResult::kOk:
      if (key == "bar.size") s.ApplyBarSize();
      if (key == "trace.max") s.trace.SetCapacity(s.trace_max);
      return 0;
    case KeyResult::kBadValue:
      return kBadValue;
    case KeyResult::kUnknownKey:
      break;
  }
  if (key == "clock.advance_us") {
    uint32_t us;
    if (!ParseU32(value, &us)) return kBadValue;
    s.manual_us += us;
    return 0;
  }
  if (key.compare(0, 4, "reg.") == 0) {
    uint32_t word;
    if (!s.RegisterKey(key, &word)) return kUnknownKey;
    if (value.empty() || value == "none") {
      s.forced.erase(word);
      return 0;
    }
    uint32_t v;
    if (!ParseU32(value, &v)) return kBadValue;
    s.forced[word] = v;
    return 0;
  }
  for (auto& device : s.devices) {
    switch (device->Set(key, value)) {
      case KeyResult::kOk:
        return 0;
      case KeyResult::kBadValue:
        return kBadValue;
      case KeyResult::kUnknownKey:
        break;
    }
  }
  return kUnknownKey;
}

bool BoardModel::Get(const std::string& key, std::string* value) const {
  const State& s = *state_;
  if (s.keys.Get(key, value)) return true;
  uint32_t word;
  if (s.RegisterKey(key, &word)) {
    *value = FormatHex(s.ReadWord(word, true));
    return true;
  }
  if (key == "trace.count") {
    *value = FormatDecimal(s.trace.count());
    return true;
  }
  if (key == "clock.us") {
    *value = FormatDecimal(NowUs());
    return true;
  }
  for (auto& device : s.devices)
    if (device->Get(key, value)) return true;
  return false;
}

void BoardModel::KeyNames(std::vector<std::string>* out) const {
  state_->keys.Names(out);
  out->push_back("reg.0xADDR");
  out->push_back("clock.advance_us");
  for (auto& device : state_->devices) device->KeyNames(out);
}

void BoardModel::Reset() {
  State& s = *state_;
  s.keys.Reset();
  s.forced.clear();
  s.storage.assign(s.bar_size / 4, 0);
  for (auto& device : s.devices) device->Reset();
  s.trace.Clear();
  s.trace.SetCapacity(s.trace_max);
}

std::vector<zsim_access> BoardModel::Trace() const {
  std::vector<zsim_access> out(state_->trace.held());
  state_->trace.Copy(out.data(), out.size());
  return out;
}

void BoardModel::ClearTrace() { state_->trace.Clear(); }

uint64_t BoardModel::TraceCount() const { return state_->trace.count(); }

size_t BoardModel::CopyTrace(zsim_access* out, size_t max) const {
  return state_->trace.Copy(out, max);
}

uint64_t BoardModel::NowUs() const {
  const State& s = *state_;
  if (s.time_source) return s.time_source();
  if (s.clock == 1) return s.manual_us;
  const int64_t counter = tvx::os::PerformanceCounter(), frequency = tvx::os::PerformanceFrequency();
  return uint64_t(counter / frequency * 1000000 + counter % frequency * 1000000 / frequency);
}

void BoardModel::SetTimeSource(std::function<uint64_t()> source) {
  state_->time_source = std::move(source);
}

unsigned BoardModel::index() const { return state_->index; }
uint32_t BoardModel::bar_size() const { return state_->bar_size; }

uint32_t BoardModel::fault(Fault which) const { return state_->faults[size_t(which)]; }
bool BoardModel::passive() const { return state_->mmio == 1; }
uint32_t BoardModel::slot() const { return state_->slot; }
uint32_t BoardModel::dma_buffer_size() const { return state_->buffer_size; }
DmaMaster& BoardModel::dma_master() { return *state_->dma; }

}  // namespace zsim
