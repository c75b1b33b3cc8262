// The parsers of one process's /proc files, on text as the kernel writes it and as it
// looks when cut short or garbled.

#include <gtest/gtest.h>

#include <string>

#include "OmniraCore/platform/linux/Cmdline.h"
#include "OmniraCore/platform/linux/FlatpakInfo.h"
#include "OmniraCore/platform/linux/ListeningSockets.h"
#include "OmniraCore/platform/linux/PidIO.h"
#include "OmniraCore/platform/linux/PidStat.h"
#include "OmniraCore/platform/linux/PidStatus.h"
#include "OmniraCore/platform/linux/SmapsRollup.h"

namespace omnira::platform {
namespace {

using namespace std::string_literals;

std::string statLine(const std::string& name, const std::string& tail = "\n") {
  return "4711 (" + name +
         ") S 4700 4711 4711 34817 -1 4194560 2000 0 3 0 250 75 0 0 20 0 4 0 123456 1000000 300 "
         "18446744073709551615 1 1 0 0 0 0 0 4096 0 0 0 0 17 1 0 0 0 0 0" +
         tail;
}

TEST(PidFilesStat, ReadsFieldsWhateverTheNameHoldsAndFailsOnCutText) {
  for (const std::string name : {"bash", "Web Content", "a) b", "((x)) (y", ")", ""}) {
    SCOPED_TRACE(name);
    const auto text = statLine(name);  // the parsed name points into it
    auto stat = parsePidStat(text);
    ASSERT_TRUE(stat.ok()) << stat.error().message;
    EXPECT_EQ(stat->name, name);
    EXPECT_EQ(stat->startTicks, 123456u);
  }
  const auto unterminated = statLine("sleep", "");

  auto kernelThread = parsePidStat("2 (kthreadd) S 0 0 0 0 -1 2129984 0 0 0 0 0 3 0 0 20 0 1 0 24 0 0");
  ASSERT_TRUE(kernelThread.ok());
  EXPECT_TRUE(kernelThread->isKernelThread());

  const std::string& full = unterminated;
  // Cut anywhere before the start time: never a reading with zeros in it.
  for (size_t length : {size_t{0}, size_t{3}, size_t{10}, full.find(" 123456")}) {
    SCOPED_TRACE(length);
    EXPECT_FALSE(parsePidStat(full.substr(0, length)).ok());
  }
  EXPECT_FALSE(parsePidStat("4711 sleep S 1 1").ok());  // no parentheses
  EXPECT_FALSE(parsePidStat("1 (sleep) S 1 1 1 0 -1 0 0 0 0 0 99999999999999999999999 1 0 0 20 0 1 0 5").ok());
}

TEST(PidFilesStatus, ReadsOwnerMemoryAndSwitchesAndFailsOnCutText) {
  const std::string text =
      "Name:\tfirefox\nUmask:\t0022\nUid:\t1000\t0\t0\t0\nVmRSS:\t  900 kB\nRssAnon:\t  300 kB\n"
      "RssFile:\t  500 kB\nRssShmem:\t  100 kB\nVmSwap:\t  24 kB\nvoluntary_ctxt_switches:\t70\n"
      "nonvoluntary_ctxt_switches:\t5";  // no final newline
  auto status = parsePidStatus(text);
  ASSERT_TRUE(status.ok()) << status.error().message;
  EXPECT_EQ(status->realUID, 1000u);
  EXPECT_EQ(status->footprintBytes(), (300u + 100u + 24u) * 1024u);
  EXPECT_EQ(status->residentKB, 900u);
  EXPECT_EQ(status->contextSwitches(), 75u);

  // Kernel threads and zombies have no memory lines at all.
  auto kernelThread = parsePidStatus("Name:\tkthreadd\nUid:\t0\t0\t0\t0\nKthread:\t1\nvoluntary_ctxt_switches:\t59\n"
                                     "nonvoluntary_ctxt_switches:\t0\n");
  ASSERT_TRUE(kernelThread.ok());
  EXPECT_EQ(kernelThread->footprintBytes(), 0u);

  const std::string head = "Name:\tx\nUid:\t1000\t1000\t1000\t1000\nRssAnon:\t  300 kB\n";
  EXPECT_FALSE(parsePidStatus(head).ok());  // cut before the switch lines
  const std::string tail = "voluntary_ctxt_switches:\t1\nnonvoluntary_ctxt_switches:\t1\n";
  EXPECT_FALSE(parsePidStatus("Uid:\t1000\t1000\t1000\t1000\nRssAnon:\t  300\n" + tail).ok());  // no unit
  EXPECT_FALSE(parsePidStatus("Uid:\t1000\t1000\t1000\t1000\nVmRSS:\t  \n" + tail).ok());  // cut mid-line
  EXPECT_FALSE(parsePidStatus("Uid:\t1\nvoluntary_ctxt_switches:\t-1\nnonvoluntary_ctxt_switches:\t1\n").ok());
}

TEST(PidFilesIO, ReadsDiskBytesAndRejectsGarbage) {
  auto io = parsePidIO("rchar: 5\nwchar: 6\nsyscr: 1\nsyscw: 1\nread_bytes: 4096\nwrite_bytes: 8192\ncancelled_write_bytes: 0");
  ASSERT_TRUE(io.ok());
  EXPECT_EQ(io->readBytes, 4096u);
  EXPECT_EQ(io->writeBytes, 8192u);
  EXPECT_FALSE(parsePidIO("rchar: 5\nread_bytes: 4096\n").ok());
  EXPECT_FALSE(parsePidIO("").ok());
}

// A current kernel's rollup is read through the fixture tree (LibProc_test).
TEST(PidFilesSmapsRollup, OlderKernelsLackTheSplitAndGarbageFails) {
  auto older = parseSmapsRollup("00400000-7ffd00000000 ---p 00000000 00:00 0 [rollup]\nRss:  1000 kB\nPss:  600 kB\n");
  ASSERT_TRUE(older.ok());
  EXPECT_FALSE(older->pssAnonKB.has_value());

  EXPECT_FALSE(parseSmapsRollup("Rss:  1000 kB\n").ok());
  EXPECT_FALSE(parseSmapsRollup("Rss:  1000 kB\nPss:  6x0 kB\n").ok());
}

TEST(PidFilesCmdline, SplitsArgumentsAsProcessesLeaveThem) {
  using Args = std::vector<std::string>;
  EXPECT_EQ(parseCmdline("/bin/sleep\0" "100\0"s), (Args{"/bin/sleep", "100"}));
  EXPECT_EQ(parseCmdline(""), Args{});                                         // kernel thread
  EXPECT_EQ(parseCmdline("sh\0-c\0\0x\0"s), (Args{"sh", "-c", "", "x"}));       // an empty argument stays
  // Retitled by the process itself, padded with NULs.
  EXPECT_EQ(parseCmdline("/opt/chrome/chrome --type=renderer  --lang=en\0\0\0\0"s),
            (Args{"/opt/chrome/chrome", "--type=renderer", "--lang=en"}));
  // A single argument with spaces but no options is a path with spaces.
  EXPECT_EQ(parseCmdline("/home/a/My Apps/tool\0"s), (Args{"/home/a/My Apps/tool"}));
}

TEST(PidFilesFlatpakInfo, ReadsTheApplicationName) {
  EXPECT_EQ(parseFlatpakAppID("[Application]\nname=org.mozilla.firefox\nruntime=runtime/x\n[Instance]\nname=no\n"),
            "org.mozilla.firefox");
  EXPECT_EQ(parseFlatpakAppID("[Instance]\nname=x\n[Application]\n# comment\nname = org.gnome.Maps"), "org.gnome.Maps");
}

// Both families' listening sockets are read through the fixture tree (LibProc_test).
TEST(PidFilesListeningSockets, RejectsCutLinesAndReadsSocketLinks) {
  EXPECT_TRUE(parseListeningSockets("  sl  local_address\n").ok());
  EXPECT_FALSE(parseListeningSockets("header\n   0: 0100007F:1F90 00000000:0000 0A\n").ok());
  EXPECT_FALSE(parseListeningSockets("header\n   0: 0100007F:XYZ 00000000:0000 0A 0:0 0:0 0 1000 0 5001 1\n").ok());

  EXPECT_EQ(socketInodeOfLink("socket:[5001]"), 5001u);
  EXPECT_EQ(socketInodeOfLink("/home/a/socket:[1]"), std::nullopt);
}

}  // namespace
}  // namespace omnira::platform
