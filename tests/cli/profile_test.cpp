// Profiles for `run`: every key lands where the steps read it, the receiver runs in its fixed
// order whatever the file's, relative paths are the profile's, and a mistake names its line.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "profile.h"

namespace tvx::cli {
namespace {

namespace fs = std::filesystem;

std::string In(const std::string& dir, const std::string& file) {
  return (fs::path(dir) / file).string();
}

Profile Parsed(const std::string& text) {
  Profile p;
  EXPECT_EQ(ParseProfile(text, "prof", "S", &p), "") << text;
  return p;
}

// Sections in another order than the run's, comments, quotes, lists and a bare flag.
TEST(ParseProfile, EveryKeyLandsWhereItsStepReadsIt) {
  const Profile p = Parsed(
      "[capture]\nchannels = 0-2, 5\nbytes = 0x1000\nverify\noutput = out\nrate = max\n"
      "[dmpx]\ncontrol = 1 2 0x3\ntable = d.bin ; the data\n"
      "[eq]\ncoefficients = 1:2, 3:4\ntable = e.dat\ncontrol = 7\n"
      "[gain]\nsecond = 5 6\nfirst = 4\n"
      "[control]\ndma3 = 9\niq = 8\n"
      "[rate]\nfilter = 12\nfilters = \"f dir\"\nsymbol-rate = 10e6\n"
      "[tune]\nmulti = yes\ncarrier = 1.2e9\n"
      "[signal]\ntables = t\ncoding = 2\ncode-rate = 1\ntype = 8psk\n"
      "[fpga]\ndec = x.bin\n"
      "[virtual-board]\ndemod.fault = never_lock\n# a comment\n");
  std::vector<DemodStep::Kind> kinds;
  for (const DemodStep& s : p.receiver) kinds.push_back(s.kind);
  EXPECT_EQ(kinds, (std::vector<DemodStep::Kind>{
                       DemodStep::kSignal, DemodStep::kTune, DemodStep::kRate,
                       DemodStep::kGainFirst, DemodStep::kGainSecond, DemodStep::kEqControl,
                       DemodStep::kEqTable, DemodStep::kEqSet, DemodStep::kDmpxLoad,
                       DemodStep::kDmpxControl}));
  EXPECT_EQ(p.receiver[0].modulation, 3);
  EXPECT_EQ(p.receiver[1].value, 1.2e9);
  EXPECT_EQ(p.receiver[4].words, (std::vector<uint32_t>{5, 6}));
  EXPECT_EQ(p.receiver[6].file, In("prof", "e.dat"));
  EXPECT_EQ(p.receiver[7].pairs.size(), 2u);
  EXPECT_EQ(p.receiver[9].words, (std::vector<uint32_t>{1, 2, 3}));
  const Invocation& o = p.options;
  EXPECT_TRUE(o.code_rate == 1 && o.coding == 2 && o.filter == 12 && o.multi && o.verify);
  EXPECT_EQ(o.tables_dir, In("prof", "t"));
  EXPECT_EQ(o.filters_dir, In("prof", "f dir"));
  EXPECT_EQ(o.channels, (std::vector<uint32_t>{0, 1, 2, 5}));
  EXPECT_TRUE(o.bytes == 0x1000 && o.rate == "max" && o.output == In("prof", "out"));
  EXPECT_EQ(p.controls, (std::vector<std::pair<std::string, uint32_t>>{{"iq", 8}, {"dma3", 9}}));
  EXPECT_EQ(p.fpga, (std::vector<std::pair<std::string, std::string>>{{"DEC", In("prof", "x.bin")}}));
  ASSERT_EQ(p.sim.size(), 1u);
  EXPECT_EQ(p.sim[0].key + "=" + p.sim[0].value + "@" + std::to_string(p.sim[0].line),
            "demod.fault=never_lock@35");
  EXPECT_TRUE(p.capture);
}

// The profile's directory, an absolute path, and the samples directory, moved by its key.
TEST(ParseProfile, RelativePathsAreTheProfiles) {
  const std::string absolute = fs::absolute("abs").string();
  const struct { std::string samples_key, value, resolved; } cases[] = {
      {"", "t", In("prof", "t")},
      {"", absolute, absolute},
      {"", "$samples", "S"},
      {"", "$samples/tables", In("S", "tables")},
      {"", "$samplesX", In("prof", "$samplesX")},
      {"samples = s2\n", "$samples/tables", In(In("prof", "s2"), "tables")},
  };
  for (const auto& c : cases) {
    const Profile p = Parsed(c.samples_key + "[signal]\ntype = qpsk\ntables = \"" + c.value + "\"\n");
    EXPECT_EQ(p.options.tables_dir, c.resolved) << c.samples_key << c.value;
  }
  EXPECT_EQ(Parsed("[fpga]\nimages = $samples\n").fpga.back(),
            (std::pair<std::string, std::string>{"RS", In("S", "rs.bin")}));
}

TEST(ParseProfile, AMistakeNamesItsLine) {
  const std::pair<const char*, const char*> cases[] = {
      {"[signal]\n\nfrob = 1\n", "3: unknown key 'frob' in [signal] (type, code-rate, coding, tables)"},
      {"[tune]\ncarrier = 1e9\n[tuner]\n", "3: unknown section [tuner]"},
      {"type = qpsk\n", "1: unknown key 'type' before the first section"},
      {"[signal]\ntype = QPSX\n", "2: [signal] type: invalid value 'QPSX' (a signal type"},
      {"[tune]\ncarrier = 1.2 GHz\n", "2: [tune] carrier: 2 values where 1 is expected"},
      {"[gain]\nsecond = 1\n", "2: [gain] second: 1 values where 2 are expected"},
      {"[capture]\nrate = 0\n", "2: [capture] rate: invalid value '0'"},
      {"[eq]\ncoefficients = 1:2, 3\n", "2: [eq] coefficients: invalid value '1:2 3'"},
      {"[rate]\nfilters = f\n", "2: [rate] filters needs [rate] symbol-rate"},
      {"[capture]\nbytes = 1\nseconds = 1\n", "3: [capture] seconds excludes [capture] bytes"},
      {"[tune]\ncarrier = 1\ncarrier = 2\n", "3: [tune] carrier: given twice (first on line 2)"},
      {"[fpga]\nrs =\n", "2: [fpga] rs: no value"},
      {"[fpga]\nx\n", "2: not a KEY = VALUE line: x"},
  };
  for (const auto& [text, error] : cases) {
    Profile p;
    const std::string said = ParseProfile(text, "prof", "S", &p);
    EXPECT_EQ(said.compare(0, std::string(error).size(), error), 0) << text << " said: " << said;
  }
}

}  // namespace
}  // namespace tvx::cli
