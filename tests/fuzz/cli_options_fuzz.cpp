// The CLI's command line and number parsers: the input split at NUL bytes is the argument list,
// and each argument also goes through every number parser, ParseUnsigned checked against the C
// library, the others against their own round trip.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <string>
#include <vector>

#include "fuzz_util.h"
#include "loaders.h"
#include "options.h"
#include "text.h"

using namespace tvx::cli;

namespace {

bool Channels(const std::vector<uint32_t>& v) {
  std::vector<uint32_t> sorted = v;
  std::sort(sorted.begin(), sorted.end());
  return std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end() &&
         (sorted.empty() || sorted.back() < 256);
}

void CheckNumbers(const std::string& arg, uint64_t max) {
  uint64_t value = 0;
  const bool ok = ParseUnsigned(arg, max, &value);
  const bool hex = arg.size() > 2 && arg[0] == '0' && (arg[1] == 'x' || arg[1] == 'X');
  const std::string digits = hex ? arg.substr(2) : arg;
  const bool plain = !digits.empty() && std::all_of(digits.begin(), digits.end(), [&](char c) {
    return hex ? std::isxdigit(static_cast<unsigned char>(c)) : c >= '0' && c <= '9';
  });
  errno = 0;
  const unsigned long long expected = plain ? std::strtoull(digits.c_str(), nullptr, hex ? 16 : 10) : 0;
  FUZZ_CHECK(ok == (plain && errno == 0 && expected <= max) && (!ok || value == expected));

  double number = 0, again = 0;
  char text[40];
  if (ParseNumber(arg, &number)) {
    std::snprintf(text, sizeof text, "%.17g", number);
    FUZZ_CHECK(std::isfinite(number) && ParseNumber(text, &again) && again == number);
  }
  std::vector<uint32_t> channels, reparsed;
  if (ParseChannelList(arg, &channels)) {
    std::string joined;
    for (uint32_t c : channels) joined += (joined.empty() ? "" : ",") + std::to_string(c);
    FUZZ_CHECK(!channels.empty() && Channels(channels) && ParseChannelList(joined, &reparsed) &&
               reparsed == channels);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<std::string> args(1);
  for (size_t i = 0; i < size; ++i) {
    if (data[i] == 0) args.emplace_back();
    else args.back() += char(data[i]);
  }
  static const uint64_t kMaxima[] = {255, 65536, 1000000, UINT64_MAX};
  for (size_t i = 0; i < args.size(); ++i) CheckNumbers(args[i], kMaxima[i % 4]);

  Invocation inv;
  if (!ParseCommandLine(args, &inv).empty()) return 0;
  uint64_t rate = 0;
  FUZZ_CHECK(inv.board <= 255 && inv.count >= 1 && inv.count <= 65536 && inv.length <= 65536);
  FUZZ_CHECK(Channels(inv.channels) && inv.seconds >= 0 && inv.seconds <= 1e6);
  FUZZ_CHECK(inv.rate.empty() || inv.rate == "max" || (ParseUnsigned(inv.rate, 1000000, &rate) && rate > 0));
  return 0;
}
