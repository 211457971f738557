#include "snapshot/sys_info_manage.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <string>

#include "tests/unit/snapshot/snapshot_fixture.h"

namespace {

using ara::tessel::common::log::Log;
using vesk::wardend::ListenerParams;
using vesk::wardend::ListenerType;
using wardend::test::kWallText;
using wardend::test::LogLevel;
using wardend::test::ReadFile;
using wardend::test::SnapshotTest;

const std::string kVersion = "#WRDNSNAPSHOT V100\n";
const std::string kTimeLine = std::string("#snapshot time: ") + kWallText + "\n";

using SysInfoManageConfigTest = SnapshotTest;

TEST_F(SysInfoManageConfigTest, AnInvalidVeskJsonKeepsTheFunctionOff) {
    Configure("");
    EXPECT_TRUE(Logged(LogLevel::kWarn,
                       "[SysInfoManage][Maybe vesk.json format is wrong, so use default config]"));
    EXPECT_TRUE(Logged(LogLevel::kInfo,
                       "[SnapshotConfig in vesk.json][threshold=0, enable_sched_trace=false, "
                       "time_delay=false, cpu_usage=false, net_statistics=false, path=/tmp]"))
        << LogDump();
    EXPECT_EQ(sut_->LogDir(), "/tmp/");

    const std::uint64_t suppressedBefore = Log::SuppressedCount("Snapshot_Disabled");
    EXPECT_EQ(Trigger(Listener("g", 1, 2)), 0);
    EXPECT_EQ(Trigger(Listener("g", 1, 2)), 0);
    // The line is rate limited under its own tag: the second one is counted, not written.
    EXPECT_EQ(LogCount(LogLevel::kWarn, "[Snapshot function in vesk.json is not enabled]"), 1U);
    EXPECT_EQ(Log::SuppressedCount("Snapshot_Disabled"), suppressedBefore + 1);
    EXPECT_TRUE(sut_->ListenerResult().empty());
    EXPECT_FALSE(sut_->HasOpenFile());
}

struct PathCase {
    const char* section;
    const char* logDir;
};

// The configuration is read once per recorder, so each case needs a recorder of its own.
class SysInfoManagePathTest : public SnapshotTest,
                              public ::testing::WithParamInterface<PathCase> {};

TEST_P(SysInfoManagePathTest, TheDirectoryAlwaysEndsInOneSlash) {
    Configure(GetParam().section);
    EXPECT_EQ(sut_->LogDir(), GetParam().logDir);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, SysInfoManagePathTest,
    ::testing::Values(PathCase{R"({"threshold": 1, "path": "/data/snap"})", "/data/snap/"},
                      PathCase{R"({"threshold": 1, "path": "/data/snap/"})", "/data/snap/"},
                      PathCase{R"({"threshold": 1, "path": ""})", "/tmp/"},
                      PathCase{R"({"threshold": 1})", "/tmp/"},
                      PathCase{R"({"threshold": 1, "path": 7})", "/tmp/"}));

// Closing (twice, harmlessly) leaves the file as it is, without an end mark.
TEST_F(SnapshotTest, TheFirstTriggerMakesTheFileWithVersionAndTimeLinesAndCloseAddsNothing) {
    ConfigureOn(false, false, false, false);
    EXPECT_EQ(Trigger(), 0);
    EXPECT_EQ(ReadFile(SnapshotPath(0)), kVersion + kTimeLine);
    EXPECT_EQ(sut_->FileName(), SnapshotPath(0));
    EXPECT_TRUE(sut_->HasOpenFile());
    EXPECT_TRUE(Logged(
        LogLevel::kInfo,
        "[SysInfoManage][SysInfoManager create a log file][fileName=" + SnapshotPath(0) + "]"))
        << LogDump();
    sut_->CloseSnapshotFile();
    sut_->CloseSnapshotFile();
    EXPECT_FALSE(sut_->HasOpenFile());
    EXPECT_EQ(ReadFile(SnapshotPath(0)), kVersion + kTimeLine);
}

TEST_F(SnapshotTest, ATriggerWithinTenSecondsChangesNothingAndTheTenthSecondPasses) {
    ConfigureOn(false, true, false, false);
    ASSERT_EQ(Trigger(Listener("first", 1, 2)), 0);
    const std::string afterFirst = ReadFile(SnapshotPath(0));

    Advance(5000);
    EXPECT_EQ(Trigger(Listener("second", 3, 4)), 0);
    Advance(4999);
    EXPECT_EQ(Trigger(Listener("third", 5, 6)), 0);
    EXPECT_EQ(
        LogCount(LogLevel::kVerbose, "[SysInfoManage][The time difference is within ten seconds]"),
        2U);
    EXPECT_EQ(ReadFile(SnapshotPath(0)), afterFirst);
    EXPECT_EQ(sut_->ListenerResult().at(ListenerType::kLatencyTimeout).guid, "first");

    Advance(1);  // exactly ten seconds after the first
    EXPECT_EQ(Trigger(Listener("fourth", 7, 8)), 0);
    EXPECT_EQ(
        ReadFile(SnapshotPath(0)),
        afterFirst + kTimeLine + "------vesktlog------\n#guid:fourth_writerPid:7_readerPid:8\n");
}

TEST_F(SnapshotTest, AHostWithoutProcPerfGetsThreeEmptySectionsAndEveryOtherSectionInOrder) {
    dir_.WriteFile("proc/net/dev", "Inter-|   Receive\n lo: 100 2\n");
    dir_.WriteFile("proc/stat", "cpu  1 2 3\nintr 9");  // the last line without its line feed
    dir_.WriteFile("tlog/guid-7.tlog", "t1 publish 100\n\nt2 receive 250\r\n");
    ConfigureOn(true, true, true, true);

    EXPECT_EQ(Trigger(Listener("guid-7", 11, 22)), 0);

    const std::string stat = "------/proc/stat------\ncpu  1 2 3\nintr 9\n";
    EXPECT_EQ(ReadFile(SnapshotPath(0)), kVersion + kTimeLine +
                                             "------/proc/perf/sched_log------\n"
                                             "------/proc/perf/sched_table------\n"
                                             "------/proc/perf/sched_stacks------\n"
                                             "------/proc/net/dev------\n"
                                             "Inter-|   Receive\n lo: 100 2\n" +
                                             stat + stat +
                                             "------vesktlog------\n"
                                             "#guid:guid-7_writerPid:11_readerPid:22\n"
                                             "t1 publish 100\n"
                                             "t2 receive 250\n");
    for (const char* path :
         {"/proc/perf/sched_log", "/proc/perf/sched_table", "/proc/perf/sched_stacks"}) {
        EXPECT_TRUE(
            Logged(LogLevel::kWarn, std::string("[SysInfoManage][Open ") + path + " failed]"));
        EXPECT_TRUE(Logged(LogLevel::kWarn,
                           std::string("[SysInfoManage][Write failed with ") + path + "]"));
    }
    const auto records = sink_->Records();
    EXPECT_EQ(std::count_if(records.begin(), records.end(),
                            [](const auto& record) { return record.level == LogLevel::kWarn; }),
              6)
        << LogDump();
}

TEST_F(SnapshotTest, TheTlogSectionReadsOnlyKeyZeroAndKeepsAGuidOnOneLine) {
    dir_.WriteFile("tlog/other.tlog", "never read\n");
    ConfigureOn(false, true, false, false);
    EXPECT_EQ(Trigger({{static_cast<ListenerType>(1), ListenerParams{"other", 1, 2}}}), 0);
    Advance(10000);
    EXPECT_EQ(Trigger(Listener("a\nb", 4294967295U, 0)), 0);
    EXPECT_EQ(ReadFile(SnapshotPath(0)), kVersion + kTimeLine + "------vesktlog------\n" +
                                             kTimeLine +
                                             "------vesktlog------\n"
                                             "#guid:a?b_writerPid:4294967295_readerPid:0\n");
}

TEST_F(SnapshotTest, AnExistingFileIsNeverOverwritten) {
    dir_.WriteFile("out/snapshot_" + std::string(kWallText) + "_0.log", "kept\n");
    ConfigureOn(false, false, false, false);
    EXPECT_EQ(Trigger(), -1);
    EXPECT_EQ(ReadFile(SnapshotPath(0)), "kept\n");
    EXPECT_FALSE(sut_->HasOpenFile());
    EXPECT_TRUE(
        Logged(LogLevel::kWarn,
               "[SysInfoManage][Recording the same file name, please check the file name]"));
}

// version (19) + time line (36) + "------/proc/net/dev------\n" (26) + content.
constexpr std::size_t kOverhead = 19 + 36 + 26;
constexpr std::size_t kLimit = 2097152;

// Content of the given size in lines of at most 1000 bytes, the last ending in a line feed.
std::string Content(std::size_t size) {
    std::string content;
    content.reserve(size);
    while (content.size() < size) {
        const std::size_t line = std::min<std::size_t>(1000, size - content.size());
        content.append(line - 1, 'x');
        content.push_back('\n');
    }
    return content;
}

struct BoundaryCase {
    std::size_t fileSize;
    bool finished;
};

class SnapshotBoundaryTest : public SnapshotTest,
                             public ::testing::WithParamInterface<BoundaryCase> {};

TEST_P(SnapshotBoundaryTest, AFileIsFinishedOnlyPastTwoMebibytes) {
    dir_.WriteFile("proc/net/dev", Content(GetParam().fileSize - kOverhead));
    ConfigureOn(false, false, false, true);
    ASSERT_EQ(Trigger(), 0);

    const std::string first = ReadFile(SnapshotPath(0));
    if (GetParam().finished) {
        EXPECT_EQ(first.size(), GetParam().fileSize + 5);
        EXPECT_EQ(first.substr(first.size() - 10), "xxxx\n#END\n");
        EXPECT_EQ(ReadFile(SnapshotPath(1)), kVersion);
        EXPECT_TRUE(Logged(
            LogLevel::kInfo,
            "[SysInfoManage][SysInfoManager close log file][fileName=" + SnapshotPath(0) + "]"));
    } else {
        EXPECT_EQ(first.size(), GetParam().fileSize);
        EXPECT_EQ(SnapshotFiles().size(), 1U);
    }
    EXPECT_TRUE(sut_->HasOpenFile());
}

INSTANTIATE_TEST_SUITE_P(Sizes, SnapshotBoundaryTest,
                         ::testing::Values(BoundaryCase{kLimit, false},
                                           BoundaryCase{kLimit + 1, true}));

TEST_F(SnapshotTest, NineFinishedFilesAreKeptAndAHandDeletedOneIsReported) {
    dir_.WriteFile("proc/net/dev", Content(kLimit));
    ConfigureOn(false, false, false, true);

    ASSERT_EQ(Trigger(), 0);  // finishes file 0
    // Removed while it is open: its finish finds it gone, and its turn to go fails.
    Advance(10000);
    ASSERT_EQ(unlink(SnapshotPath(1).c_str()), 0);
    ASSERT_EQ(Trigger(), 0);  // finishes file 1
    EXPECT_TRUE(Logged(
        LogLevel::kWarn,
        "[Log file does not exist. Maybe the user deleted it][fileName=" + SnapshotPath(1) + "]"));
    for (int finish = 3; finish <= 9; ++finish) {
        Advance(10000);
        ASSERT_EQ(Trigger(), 0);
    }
    EXPECT_EQ(SnapshotFiles().size(), 9U);  // 0 and 2 to 8 finished, 9 open
    EXPECT_FALSE(Logged(LogLevel::kInfo, "[SysInfoManage][Current logFile num is more than 10]"));

    Advance(10000);
    ASSERT_EQ(Trigger(), 0);  // the tenth finish
    EXPECT_FALSE(std::filesystem::exists(SnapshotPath(0)));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "[SysInfoManage][Current logFile num is more than 10]"));
    EXPECT_EQ(SnapshotFiles().size(), 9U);

    Advance(10000);
    ASSERT_EQ(Trigger(), 0);
    EXPECT_TRUE(
        Logged(LogLevel::kWarn, "[Unable to remove file][fileName=" + SnapshotPath(1) + "]"));
    const std::vector<std::string> closed = sut_->ClosedFiles();
    ASSERT_EQ(closed.size(), 9U);
    EXPECT_EQ(closed.front(), SnapshotPath(2));
    EXPECT_EQ(closed.back(), SnapshotPath(10));
    EXPECT_EQ(SnapshotFiles().size(), 10U);  // 2 to 10 finished, 11 open
    EXPECT_EQ(ReadFile(SnapshotPath(11)), kVersion);
}

// Lowers the file size limit of the process, as a full disk would, for the test's duration.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &previous_);
        previousHandler_ = std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit = previous_;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &previous_);
        std::signal(SIGXFSZ, previousHandler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit previous_{};
    void (*previousHandler_)(int){};
};

TEST_F(SnapshotTest, OnAFullDiskEverySectionFailsOnItsOwnAndTheSnapshotStillCounts) {
    dir_.WriteFile("proc/net/dev", "lo: 1\n");
    dir_.WriteFile("proc/stat", "cpu 1\n");
    ConfigureOn(true, true, true, true);
    {
        const FileSizeLimit full(kVersion.size() + kTimeLine.size());
        EXPECT_EQ(Trigger(Listener("g", 1, 2)), 0);
    }
    EXPECT_EQ(ReadFile(SnapshotPath(0)), kVersion + kTimeLine);
    for (const char* path : {"/proc/perf/sched_log", "/proc/perf/sched_table",
                             "/proc/perf/sched_stacks", "/proc/net/dev", "/proc/stat"}) {
        EXPECT_TRUE(
            Logged(LogLevel::kWarn,
                   std::string("[SysInfoManage][WriteContentHeader: write failed][fileName=") +
                       path + "]"));
        EXPECT_TRUE(Logged(LogLevel::kWarn,
                           std::string("[SysInfoManage][Write failed with ") + path + "]"));
    }
    EXPECT_TRUE(Logged(LogLevel::kWarn,
                       "[SysInfoManage][WriteContentHeader: write failed][fileName=vesktlog]"));
    EXPECT_TRUE(Logged(LogLevel::kWarn, "[SysInfoManage][Write failed with tlog]"));
    EXPECT_TRUE(sut_->HasOpenFile());
}

}  // namespace
