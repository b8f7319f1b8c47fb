#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <string>
#include <vector>

#include "board_files.hpp"
#include "bootinit/common.h"
#include "common_faults.hpp"

using testing::ElementsAre;
using testsupport::MainLog;

namespace {

// The record's layout is shared with every reader of file lists.
static_assert(offsetof(BOOT_INIT_FILELIST_TXT_RECORD_S, node) == 0);
static_assert(offsetof(BOOT_INIT_FILELIST_TXT_RECORD_S, reserved) == 2 * sizeof(void *));
static_assert(offsetof(BOOT_INIT_FILELIST_TXT_RECORD_S, hardType) == 3 * sizeof(void *));
static_assert(offsetof(BOOT_INIT_FILELIST_TXT_RECORD_S, cpuId) == 3 * sizeof(void *) + 32);
static_assert(offsetof(BOOT_INIT_FILELIST_TXT_RECORD_S, filePath) == 3 * sizeof(void *) + 64);
static_assert(offsetof(BOOT_INIT_FILELIST_TXT_RECORD_S, fileType) == 3 * sizeof(void *) + 192);
static_assert(offsetof(BOOT_INIT_FILELIST_TXT_RECORD_S, sha256) == 3 * sizeof(void *) + 320);

const std::string kDigest = "9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08";
const std::string kListPath = "/opt/list/appboot_nonmpu_filelist.txt";
const std::string kSplitFailedPrefix = "[BOOT_INIT][ERROR]:Trans string to array failed, result = ";

struct Fields {
  std::string hardType, cpuId, filePath, fileType, sha256;
  bool operator==(const Fields &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Fields &f) {
  return out << '{' << f.hardType << ' ' << f.cpuId << ' ' << f.filePath << ' ' << f.fileType << ' '
             << f.sha256 << '}';
}

Fields Of(const BOOT_INIT_FILELIST_TXT_RECORD_S &record) {
  return {record.hardType, record.cpuId, record.filePath, record.fileType, record.sha256};
}

Fields Line(const std::string &path, const std::string &type = "app_boot") {
  return {"0x1A2B", "0x0", path, type, kDigest};
}

std::string Text(const Fields &f) {
  return f.hardType + " " + f.cpuId + " " + f.filePath + " " + f.fileType + " " + f.sha256;
}

class FilelistTest : public testing::Test {
 protected:
  void SetUp() override {
    commonfaults::Reset();
    testsupport::StartWithEmptyLogs();
    head_.links.next = &head_.links;
    head_.links.prev = &head_.links;
  }
  void TearDown() override {
    BOOT_InitDllFreeAll(&head_, std::free);
    commonfaults::Reset();
  }

  uint32_t ReadList(const std::string &content) {
    testsupport::WriteFile(kListPath, content);
    return BOOT_INIT_GetAllRecordFromFilelistTxt(kListPath.c_str(), &head_);
  }

  std::vector<Fields> Records() {
    std::vector<Fields> records;
    for (BOOT_INIT_DLL_NODE_S *node = head_.links.next; node != &head_.links; node = node->next) {
      records.push_back(Of(*reinterpret_cast<BOOT_INIT_FILELIST_TXT_RECORD_S *>(node)));
    }
    EXPECT_EQ(records.size(), head_.count);
    return records;
  }

  BOOT_INIT_DLL_HEAD_S head_{};
};

TEST_F(FilelistTest, RecordsKeepTheOrderOfTheLines) {
  const int fdsBefore = testsupport::CountOpenFds();
  EXPECT_EQ(ReadList(Text(Line("bin/a")) + "\n" + Text(Line("lib/b.so", "lib")) + "\n" +
                     Text(Line("etc/c.conf")) + "\n"),
            0u);
  EXPECT_THAT(Records(), ElementsAre(Line("bin/a"), Line("lib/b.so", "lib"), Line("etc/c.conf")));
  EXPECT_THAT(MainLog(), ElementsAre());
  EXPECT_EQ(testsupport::CountOpenFds(), fdsBefore);
}

TEST_F(FilelistTest, EmptyFileAndBlankLinesGiveAnEmptyList) {
  EXPECT_EQ(ReadList(""), 0u);
  EXPECT_EQ(ReadList("\n   \n\t\n \r\n"), 0u);
  EXPECT_EQ(head_.count, 0u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(FilelistTest, SurroundingBlanksAreIgnored) {
  EXPECT_EQ(ReadList("  \t" + Text(Line("bin/a")) + " \t \r\n\n" + Text(Line("bin/b"))), 0u);
  EXPECT_THAT(Records(), ElementsAre(Line("bin/a"), Line("bin/b")));
}

TEST_F(FilelistTest, FieldsBeyondTheFifthAreIgnored) {
  EXPECT_EQ(ReadList(Text(Line("bin/a")) + " extra more\n"), 0u);
  EXPECT_THAT(Records(), ElementsAre(Line("bin/a")));
}

TEST_F(FilelistTest, RunsOfSpacesSeparateLikeOneSpace) {
  EXPECT_EQ(ReadList("0x1A2B   0x0 bin/a  app_boot " + kDigest + "\n"), 0u);
  EXPECT_THAT(Records(), ElementsAre(Line("bin/a")));
}

TEST_F(FilelistTest, OverlongDigestIsReportedAndTheRecordKept) {
  Fields longer = Line("bin/a");
  longer.sha256 = kDigest + "0";
  EXPECT_EQ(ReadList(Text(longer) + "\n" + Text(Line("bin/b")) + "\n"), 0u);
  Fields kept = longer;
  kept.sha256 = kDigest;  // the field keeps what fits
  EXPECT_THAT(Records(), ElementsAre(kept, Line("bin/b")));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:snprintf unsuccessfully: "
                                     "BOOT_INIT_Trans2FilelistTxtRecord"));
}

TEST_F(FilelistTest, FieldCapacities) {
  Fields full{std::string(31, 'h'), std::string(31, 'c'), std::string(127, 'p'),
              std::string(127, 't'), std::string(64, 'd')};
  Fields over{std::string(32, 'h'), std::string(32, 'c'), std::string(128, 'p'),
              std::string(128, 't'), std::string(65, 'd')};
  EXPECT_EQ(ReadList(Text(full) + "\n" + Text(over) + "\n"), 0u);
  EXPECT_THAT(Records(), ElementsAre(full, full));
  const std::string copyFailed =
      "[BOOT_INIT][ERROR]:snprintf unsuccessfully: BOOT_INIT_Trans2FilelistTxtRecord";
  EXPECT_THAT(MainLog(), ElementsAre(copyFailed, copyFailed, copyFailed, copyFailed, copyFailed));
}

TEST_F(FilelistTest, ShortLineBeforeTheEndFailsTheRead) {
  EXPECT_EQ(ReadList(Text(Line("bin/a")) + "\n0x1A2B 0x0 bin/b\n" + Text(Line("bin/c")) + "\n"),
            0xFFFFFFFFu);
  EXPECT_THAT(Records(), ElementsAre(Line("bin/a")));  // what came before stays for the caller
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:File list line has 3 fields, 5 needed",
                                     kSplitFailedPrefix + "4294967295"));
}

TEST_F(FilelistTest, ShortLastLineWithoutLineFeedIsDroppedQuietly) {
  EXPECT_EQ(ReadList(Text(Line("bin/a")) + "\n0x1A2B 0x0 bin/b app_boot"), 0u);
  EXPECT_THAT(Records(), ElementsAre(Line("bin/a")));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:File list line has 4 fields, 5 needed",
                                     kSplitFailedPrefix + "4294967295"));
}

TEST_F(FilelistTest, ShortLastLineWithLineFeedFailsTheRead) {
  EXPECT_EQ(ReadList(Text(Line("bin/a")) + "\nonly\n"), 0xFFFFFFFFu);
  EXPECT_THAT(Records(), ElementsAre(Line("bin/a")));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:File list line has 1 fields, 5 needed",
                                     kSplitFailedPrefix + "4294967295"));
}

TEST_F(FilelistTest, LineOfTheBufferSizeAndLonger) {
  Fields longest = Line(std::string(127, 'p'), std::string(127, 't'));
  longest.hardType = std::string(31, 'h');
  longest.cpuId = std::string(31, 'c');
  std::string text = Text(longest);
  text += std::string(511 - text.size(), ' ');  // 511 characters, then the line feed
  EXPECT_EQ(ReadList(text + "\n"), 0u);
  EXPECT_THAT(Records(), ElementsAre(longest));
  BOOT_InitDllFreeAll(&head_, std::free);

  // One more character: the line arrives in two pieces, the second one a line of its own.
  text = Text(longest) + " " + std::string(511 - Text(longest).size(), 'x');
  EXPECT_EQ(ReadList(text + "\n"), 0xFFFFFFFFu);
  EXPECT_THAT(Records(), ElementsAre(longest));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:File list line has 1 fields, 5 needed",
                                     kSplitFailedPrefix + "4294967295"));
}

TEST_F(FilelistTest, MissingFileCannotBeOpened) {
  EXPECT_EQ(BOOT_INIT_GetAllRecordFromFilelistTxt("/opt/list/none.txt", &head_), 0x10000011u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:can't open file[/opt/list/none.txt], "
                                     "uiRet = 2, errno = 2"));
}

TEST_F(FilelistTest, UnreadableStreamFailsWithoutRecords) {
  testsupport::WriteFile("/opt/list/x", "");
  EXPECT_EQ(BOOT_INIT_GetAllRecordFromFilelistTxt("/opt/list", &head_), 0xFFFFFFFFu);
  EXPECT_EQ(head_.count, 0u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(FilelistTest, NullArguments) {
  EXPECT_EQ(BOOT_INIT_GetAllRecordFromFilelistTxt(nullptr, &head_), 0x10000002u);
  EXPECT_EQ(BOOT_INIT_GetAllRecordFromFilelistTxt(kListPath.c_str(), nullptr), 0x10000002u);
  BOOT_INIT_FILELIST_TXT_RECORD_S record{};
  char line[] = "a b c d e";
  EXPECT_EQ(BOOT_INIT_Trans2FilelistTxtRecord(nullptr, &record), 0x10000002u);
  EXPECT_EQ(BOOT_INIT_Trans2FilelistTxtRecord(line, nullptr), 0x10000002u);
  const std::string null2 = "[BOOT_INIT][ERROR]:input param is null when check null 2";
  EXPECT_THAT(MainLog(), ElementsAre(null2, null2, null2, null2));
}

TEST_F(FilelistTest, RecordAllocationFailureKeepsWhatWasRead) {
  testsupport::WriteFile(kListPath, Text(Line("bin/a")) + "\n" + Text(Line("bin/b")) + "\n");
  const int fdsBefore = testsupport::CountOpenFds();
  commonfaults::Get().callocFailAt = 2;
  EXPECT_EQ(BOOT_INIT_GetAllRecordFromFilelistTxt(kListPath.c_str(), &head_), 0x10000005u);
  EXPECT_THAT(Records(), ElementsAre(Line("bin/a")));
  EXPECT_EQ(testsupport::CountOpenFds(), fdsBefore);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(FilelistTest, SplitFailureIsReportedTwice) {
  testsupport::WriteFile(kListPath, Text(Line("bin/a")) + "\n" + Text(Line("bin/b")) + "\n");
  commonfaults::Get().splitResult = 6;
  EXPECT_EQ(BOOT_INIT_GetAllRecordFromFilelistTxt(kListPath.c_str(), &head_), 0xFFFFFFFFu);
  EXPECT_EQ(head_.count, 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kSplitFailedPrefix + "6", kSplitFailedPrefix + "4294967295"));
}

TEST_F(FilelistTest, OneLineIsTrimmedInPlaceAndParsed) {
  char line[] = "  0x1A2B 0x0 bin/a app_boot abc \n";
  BOOT_INIT_FILELIST_TXT_RECORD_S record{};
  EXPECT_EQ(BOOT_INIT_Trans2FilelistTxtRecord(line, &record), 0u);
  EXPECT_EQ(std::string(line), "0x1A2B 0x0 bin/a app_boot abc");
  EXPECT_EQ(Of(record), (Fields{"0x1A2B", "0x0", "bin/a", "app_boot", "abc"}));
  char shortLine[] = "0x1A2B 0x0";
  EXPECT_EQ(BOOT_INIT_Trans2FilelistTxtRecord(shortLine, &record), 0xFFFFFFFFu);
  char empty[] = "   ";
  EXPECT_EQ(BOOT_INIT_Trans2FilelistTxtRecord(empty, &record), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:File list line has 2 fields, 5 needed",
                                     "[BOOT_INIT][ERROR]:File list line has 0 fields, 5 needed"));
}

}  // namespace
