// DRM clients from fdinfo text as amdgpu, i915 and xe write it, from fixture /proc trees;
// a process's GPU use over two readings.

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <sstream>

#include "OmniraCore/platform/linux/DrmFdinfo.h"

namespace omnira::platform {
namespace {

const std::filesystem::path fixtures = OMNIRA_FIXTURES;
const Roots gpuProc{fixtures / "proc-gpu", ""};

std::string fixture(const std::string& relative) {
  std::ifstream in(fixtures / "proc-gpu" / relative);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

DrmClient parsed(std::string_view text) {
  auto client = parseDrmFdinfo(text);
  EXPECT_TRUE(client.ok()) << text;
  return client.ok() ? *client : DrmClient{};
}

// `text` with each "from" replaced by "to", for a later reading of the same client.
std::string later(std::string text, std::initializer_list<std::pair<std::string, std::string>> changes) {
  for (const auto& [from, to] : changes) {
    const auto at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    if (at != std::string::npos) text.replace(at, from.size(), to);
  }
  return text;
}

TEST(DrmFdinfo, EachDriversFormat) {
  auto amd = parsed(fixture("2100/fdinfo/3"));
  EXPECT_EQ(amd.engineNanoseconds.at("gfx"), 8123456789u);

  auto i915 = parsed(fixture("2200/fdinfo/7"));
  EXPECT_EQ(i915.engineNanoseconds.at("render"), 2345678901u);
  EXPECT_EQ(i915.engineCapacity.at("video"), 2u);

  auto xe = parsed(fixture("2300/fdinfo/9"));
  EXPECT_EQ(xe.cycles.at("rcs"), 123456789u);
  EXPECT_EQ(xe.engineCapacity.at("ccs"), 4u);
}

TEST(DrmFdinfo, NoClientCutShortOrGarbled) {
  EXPECT_FALSE(parseDrmFdinfo(fixture("2100/fdinfo/6")).ok());   // a socket
  EXPECT_FALSE(parseDrmFdinfo(fixture("2300/fdinfo/10")).ok());  // cut before the client id
  EXPECT_FALSE(parseDrmFdinfo("drm-driver:\ti915\ndrm-client-id:\tseven\n").ok());
  EXPECT_FALSE(parseDrmFdinfo("drm-client-id:\t7\n").ok());

  auto odd = parsed(
      "drm-driver:\tpanfrost\ndrm-client-id:\t3\n"
      "drm-engine-fragment:\t12 us\n"       // not ns
      "drm-engine-vertex-tiler:\t900 ns\n"
      "drm-engine-:\t5 ns\n"                // no engine name
      "drm-memory-vram:\t2 MiB\n"           // the older name, where no resident figure is given
      "drm-memory-gtt:\t7 KiB\n"
      "drm-resident-gtt:\t8 KiB\n"          // the newer name wins
      "drm-total-vram:\t5 GiB\n"            // no such unit
      "drm-total-gtt:\t4096\n"              // bare bytes
      "drm-resident-system:\t18446744073709551615 KiB\n"  // overflows in bytes
      "drm-engine-tiler:\t10");             // cut short
  EXPECT_TRUE(odd.pdev.empty());
  ASSERT_EQ(odd.engineNanoseconds.size(), 1u);
  EXPECT_EQ(odd.engineNanoseconds.at("vertex-tiler"), 900u);
  EXPECT_EQ(odd.residentBytes.at("gtt"), 8u * 1024);
  EXPECT_EQ(odd.totalBytes.at("gtt"), 4096u);
}

TEST(DrmFdinfo, ClientsOfAProcessOnceEachAndOnlyThroughDri) {
  auto game = readDrmClients(gpuProc, 2100);
  ASSERT_EQ(game.size(), 2u);  // fds 3 and 4 are one client
  std::set<uint64_t> ids;
  for (const auto& c : game) ids.insert(c.clientId);
  EXPECT_EQ(ids, (std::set<uint64_t>{51, 52}));
  auto xe = readDrmClients(gpuProc, 2300);  // fd 10 cut short, fd 11 without fdinfo
  ASSERT_EQ(xe.size(), 1u);
  EXPECT_TRUE(readDrmClients(gpuProc, 999999).empty());
}

TEST(DrmFdinfo, BusiestEngineAndMemoryOverTwoReadings) {
  // amdgpu: two clients of one process on one GPU, 0.5 s and 0.3 s of gfx in 1 s.
  const std::string a51 = fixture("2100/fdinfo/3"), a52 = fixture("2100/fdinfo/5");
  std::vector<DrmClient> before = {parsed(a51), parsed(a52)};
  std::vector<DrmClient> after = {parsed(later(a51, {{"gfx:\t8123456789", "gfx:\t8623456789"}})),
                                  parsed(later(a52, {{"gfx:\t2000000000", "gfx:\t2300000000"}}))};
  auto amd = drmProcessUse(before, after, 1.0);
  ASSERT_TRUE(amd.busy);
  EXPECT_NEAR(*amd.busy, 0.8, 1e-9);
  EXPECT_EQ(amd.memoryBytes, (524288u + 12288 + 8192 + 12288) * 1024u);

  // i915: 1.2 s on a video engine of two units in 1 s is 0.6; render 0.1.
  const std::string i = fixture("2200/fdinfo/7");
  auto i915 = drmProcessUse({parsed(i)},
                            {parsed(later(i, {{"video:\t12000000 ns", "video:\t1212000000 ns"},
                                              {"render:\t2345678901", "render:\t2445678901"}}))},
                            1.0);
  EXPECT_NEAR(*i915.busy, 0.6, 1e-9);

  // xe counts cycles: rcs 300 of 1000, vcs (two units) 1000 of 1000 is 0.5.
  const std::string x = fixture("2300/fdinfo/9");
  auto xeUse = drmProcessUse(
      {parsed(x)},
      {parsed(later(x, {{"cycles-rcs:\t123456789", "cycles-rcs:\t123457089"},
                        {"total-cycles-rcs:\t9876543210", "total-cycles-rcs:\t9876544210"},
                        {"cycles-vcs:\t0", "cycles-vcs:\t1000"},
                        {"total-cycles-vcs:\t9876543210", "total-cycles-vcs:\t9876544210"}}))},
      2.0);
  EXPECT_NEAR(*xeUse.busy, 0.5, 1e-9);

  // More than the interval holds is clamped; a counter that went back or a client new this
  // time gives no share, though the new client's memory counts.
  EXPECT_EQ(drmProcessUse(before, {parsed(later(a51, {{"gfx:\t8123456789", "gfx:\t9923456789"}}))}, 1.0).busy, 1.0);
  auto reset = drmProcessUse(before, {parsed(later(a51, {{"gfx:\t8123456789", "gfx:\t5"}}))}, 1.0);
  EXPECT_EQ(reset.busy, 0.0);  // dma still counted, unchanged
  auto fresh = drmProcessUse({}, {parsed(a51)}, 1.0);
  EXPECT_FALSE(fresh.busy);
  EXPECT_FALSE(drmProcessUse(before, after, 0).busy);
  EXPECT_EQ(fresh.memoryBytes, (524288u + 12288) * 1024u);
}

}  // namespace
}  // namespace omnira::platform
