// Signature file lists: reading the main section and the file sections into digest records, the
// key lookup, the check of one file against its record, and verify sub-operation 3.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bootinit/verify.h"
#include "list_check_fixture.hpp"
#include "swm.h"

using listtest::Digests;
using listtest::FileSection;
using listtest::kAppName;
using listtest::kAppPath;
using listtest::kCreator;
using listtest::kFileMissing;
using listtest::kKernelName;
using listtest::kKernelPath;
using listtest::kNullParam;
using listtest::kPkgDir;
using listtest::kSigList;
using listtest::MainSection;
using listtest::RecordView;
using listtest::SectionText;
using listtest::SignatureList;
using testing::ElementsAre;
using testing::IsEmpty;
using testsupport::MainLog;
using testsupport::ReadFile;
using testsupport::RunOperation;
using testsupport::WriteFile;

namespace {

const std::string kReadFailed = "[BOOT_INIT][ERROR]:[Get DigestInfo from file list failed(1)";
const std::string kNameEmpty = "[BOOT_INIT][ERROR]:get digest info, file ame len is 0";
const std::string kDigestEmpty = "[BOOT_INIT][ERROR]:get digest info, digest len is 0";
const std::string kCopyFailed =
    "[BOOT_INIT][ERROR]:strcpy unsuccessfully: BOOT_INIT_GetOneKeyValueFromKeyList";

class SigListReadTest : public listtest::ListCheckTest {
 protected:
  uint32_t Read(const std::string &text) {
    WriteFile(kSigList, text);
    return BOOT_INIT_GetDigestInfoFromSignatureFileList(kSigList.c_str(), digests_.get());
  }
  uint32_t ReadWithCount(const std::string &count) {
    return Read(MainSection(kCreator, count) + SectionText(0, {kAppName, "1", appDigest_}));
  }
  uint32_t ReadWithCreator(const std::string &creator) {
    return Read(MainSection(creator, "1") + SectionText(0, {kAppName, "1", appDigest_}));
  }
  uint32_t ReadSection(const std::string &section) {
    return Read(MainSection(kCreator, "1") + "[FILE1]\n" + section);
  }
  [[nodiscard]] RecordView App(uint32_t type = 1) const { return {1, type, kAppName, appDigest_}; }

  Digests digests_;
};

// ---- reading a list ----

TEST_F(SigListReadTest, EveryFileSectionInListOrder) {
  EXPECT_EQ(Read(BothFiles()), 0u);
  EXPECT_THAT(digests_.Records(), ElementsAre(App(), RecordView{1, 2, kKernelName, kernelDigest_}));
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(SigListReadTest, SectionNamesOtherThanTheMainOneMeanNothing) {
  const std::string text = MainSection(kCreator, "2") + "[zzz]\nFILENAME=" + kKernelName +
                           "\nFILETYPE=2\nSHA256-DIGEST=" + kernelDigest_ +
                           "\n[MAIN FILE INFO]\nFILENAME=" + kAppName +
                           "\nFILETYPE=1\nSHA256-DIGEST=" + appDigest_ + "\n";
  EXPECT_EQ(Read(text), 0u);
  EXPECT_THAT(digests_.Records(), ElementsAre(RecordView{1, 2, kKernelName, kernelDigest_}, App()));
}

TEST_F(SigListReadTest, TheFirstSectionIsNeverAFile) {
  // The main section found further down is walked as a file section, and has no name.
  const std::string text = SectionText(0, {kAppName, "1", appDigest_}) + MainSection(kCreator, "1");
  EXPECT_EQ(Read(text), 1u);
  EXPECT_THAT(digests_.Records(), IsEmpty());
  EXPECT_THAT(MainLog(), ElementsAre(kNameEmpty, kReadFailed));
}

TEST_F(SigListReadTest, KeysInAnyOrderAndUnknownKeysIgnored) {
  EXPECT_EQ(ReadSection("SHA256-DIGEST=" + appDigest_ +
                        "\nCOMMENT=x\nFILETYPE=1\nFILENAME=" + kAppName + "\n"),
            0u);
  EXPECT_THAT(digests_.Records(), ElementsAre(App()));
}

TEST_F(SigListReadTest, FirstOfRepeatedKeysWins) {
  EXPECT_EQ(ReadSection("FILENAME=" + kAppName + "\nFILENAME=other\nFILETYPE=3\nFILETYPE=4\n" +
                        "SHA256-DIGEST=" + appDigest_ + "\nSHA256-DIGEST=" + kernelDigest_ + "\n"),
            0u);
  EXPECT_THAT(digests_.Records(), ElementsAre(App(3)));
}

TEST_F(SigListReadTest, RecordsAreAppendedBehindWhatTheListHolds) {
  EXPECT_EQ(Read(BothFiles()), 0u);
  EXPECT_EQ(BOOT_INIT_GetDigestInfoFromSignatureFileList(kSigList.c_str(), digests_.get()), 0u);
  EXPECT_EQ(digests_.Records().size(), 4u);
}

// ---- the main section ----

TEST_F(SigListReadTest, CreatorMustMatchExactly) {
  for (const std::string creator :
       {"Velmor Technology Inc", "velmor technology inc.", "Velmor  Technology Inc.", "x"}) {
    testsupport::ClearMainLog();
    EXPECT_EQ(ReadWithCreator(creator), 0xFFFFFFFFu) << creator;
    EXPECT_THAT(MainLog(),
                ElementsAre("[BOOT_INIT][ERROR]:vrify create by failed, info = " + creator));
  }
  EXPECT_THAT(digests_.Records(), IsEmpty());
}

TEST_F(SigListReadTest, CreatorMissing) {
  EXPECT_EQ(Read("[MAIN FILE INFO]\nFILENUM=1\n" + SectionText(0, {kAppName, "1", appDigest_})),
            0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:get Create By description failed, Ret = 4"));
}

TEST_F(SigListReadTest, CreatorLongerThanItsBuffer) {
  EXPECT_EQ(ReadWithCreator(std::string(96, 'V')), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:get Create By description failed, Ret = 5"));
}

TEST_F(SigListReadTest, ListMissingOrMalformed) {
  testsupport::RemovePath(kSigList);
  EXPECT_EQ(BOOT_INIT_GetDigestInfoFromSignatureFileList(kSigList.c_str(), digests_.get()),
            0xFFFFFFFFu);
  EXPECT_EQ(Read(BothFiles() + "not a key line\n"), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:get Create By description failed, Ret = 2",
                          "[BOOT_INIT][ERROR]:get Create By description failed, Ret = 3"));
  EXPECT_THAT(digests_.Records(), IsEmpty());
}

TEST_F(SigListReadTest, FileCountMissingPassesTheReadersCode) {
  EXPECT_EQ(Read("[MAIN FILE INFO]\nCreate By=" + kCreator + "\n" +
                 SectionText(0, {kAppName, "1", appDigest_})),
            4u);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Get value from file[" + kSigList + "] failed"));
  EXPECT_EQ(ReadWithCount(std::string(32, '1')), 5u);
}

TEST_F(SigListReadTest, FileCountZeroAnd257AreRefused) {
  EXPECT_EQ(ReadWithCount("0"), 0xFFFFFFFFu);
  EXPECT_EQ(ReadWithCount("257"), 0xFFFFFFFFu);
  EXPECT_EQ(ReadWithCount("0x101"), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:File number(0) is invalid, NumStr = 0",
                          "[BOOT_INIT][ERROR]:File number(257) is invalid, NumStr = 257",
                          "[BOOT_INIT][ERROR]:File number(257) is invalid, NumStr = 0x101"));
  EXPECT_THAT(digests_.Records(), IsEmpty());
}

TEST_F(SigListReadTest, FileCount256AndItsHexAndOctalFormsAreAccepted) {
  // Only the range counts: the list has one file section whatever the count says.
  for (const std::string count : {"256", "0x100", "0X100", "0400", "1", "0x1"}) {
    Digests digests;
    WriteFile(kSigList, MainSection(kCreator, count) + SectionText(0, {kAppName, "1", appDigest_}));
    EXPECT_EQ(BOOT_INIT_GetDigestInfoFromSignatureFileList(kSigList.c_str(), digests.get()), 0u)
        << count;
    EXPECT_EQ(digests.Records().size(), 1u);
  }
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(SigListReadTest, FileCountReadLikeAnUnsignedConversion) {
  EXPECT_EQ(ReadWithCount("12abc"), 0u);  // what follows the number is ignored
  EXPECT_EQ(ReadWithCount("abc"), 0xFFFFFFFFu);
  EXPECT_EQ(ReadWithCount("08"), 0xFFFFFFFFu);  // octal: the 8 ends the number
  EXPECT_EQ(ReadWithCount("-1"), 0xFFFFFFFFu);
  EXPECT_EQ(ReadWithCount("4294967297"), 0xFFFFFFFFu);  // beyond 32 bits: not taken modulo
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:File number(0) is invalid, NumStr = abc",
                          "[BOOT_INIT][ERROR]:File number(0) is invalid, NumStr = 08",
                          "[BOOT_INIT][ERROR]:File number(4294967295) is invalid, NumStr = -1",
                          "[BOOT_INIT][ERROR]:File number(4294967295) is invalid, "
                          "NumStr = 4294967297"));
}

TEST_F(SigListReadTest, OnlyTheMainSection) {
  EXPECT_EQ(Read(MainSection(kCreator, "3")), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Can't find digest info in signature "
                                     "file list"));
}

// ---- file sections ----

TEST_F(SigListReadTest, FileTypeZeroStopsTheList) {
  const std::string text = SignatureList({{kAppName, "1", appDigest_},
                                          {kKernelName, "0", kernelDigest_},
                                          {"third.bin", "3", appDigest_}});
  EXPECT_EQ(Read(text), 1u);
  // The record read before the failure stays for the caller to release.
  EXPECT_THAT(digests_.Records(), ElementsAre(App()));
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:File type is error, FileTypeStr = 0", kReadFailed));
}

TEST_F(SigListReadTest, FileTypeForms) {
  EXPECT_EQ(ReadSection("FILENAME=a\nFILETYPE=0x10\nSHA256-DIGEST=" + appDigest_ + "\n"), 0u);
  EXPECT_EQ(ReadSection("FILENAME=b\nFILETYPE=010\nSHA256-DIGEST=" + appDigest_ + "\n"), 0u);
  EXPECT_EQ(ReadSection("FILENAME=c\nFILETYPE=7z\nSHA256-DIGEST=" + appDigest_ + "\n"), 0u);
  EXPECT_EQ(ReadSection("FILENAME=d\nFILETYPE=-2\nSHA256-DIGEST=" + appDigest_ + "\n"), 0u);
  EXPECT_THAT(
      digests_.Records(),
      ElementsAre(RecordView{1, 16, "a", appDigest_}, RecordView{1, 8, "b", appDigest_},
                  RecordView{1, 7, "c", appDigest_}, RecordView{1, 0xFFFFFFFF, "d", appDigest_}));
}

TEST_F(SigListReadTest, FileTypeNotANumberOrMissing) {
  EXPECT_EQ(ReadSection("FILENAME=a\nFILETYPE=bin\nSHA256-DIGEST=" + appDigest_ + "\n"), 1u);
  EXPECT_EQ(ReadSection("FILENAME=a\nSHA256-DIGEST=" + appDigest_ + "\n"), 1u);
  EXPECT_EQ(ReadSection("FILENAME=a\nFILETYPE=\nSHA256-DIGEST=" + appDigest_ + "\n"), 1u);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:File type is error, FileTypeStr = bin", kReadFailed,
                          "[BOOT_INIT][ERROR]:File type is error, FileTypeStr = ", kReadFailed,
                          "[BOOT_INIT][ERROR]:File type is error, FileTypeStr = ", kReadFailed));
  EXPECT_THAT(digests_.Records(), IsEmpty());
}

TEST_F(SigListReadTest, FileTypeOf31CharactersFits32DoNot) {
  EXPECT_EQ(ReadSection("FILENAME=a\nFILETYPE=" + std::string(30, '0') +
                        "5\nSHA256-DIGEST=" + appDigest_ + "\n"),
            0u);
  EXPECT_EQ(ReadSection("FILENAME=a\nFILETYPE=" + std::string(31, '0') +
                        "5\nSHA256-DIGEST=" + appDigest_ + "\n"),
            1u);
  EXPECT_THAT(digests_.Records(), ElementsAre(RecordView{1, 5, "a", appDigest_}));
  EXPECT_THAT(MainLog(),
              ElementsAre(kCopyFailed,
                          "[BOOT_INIT][ERROR]:File type is error, FileTypeStr = ", kReadFailed));
}

TEST_F(SigListReadTest, NameEmptyOrMissing) {
  EXPECT_EQ(ReadSection("FILENAME=\nFILETYPE=1\nSHA256-DIGEST=" + appDigest_ + "\n"), 1u);
  EXPECT_EQ(ReadSection("FILETYPE=1\nSHA256-DIGEST=" + appDigest_ + "\n"), 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kNameEmpty, kReadFailed, kNameEmpty, kReadFailed));
  EXPECT_THAT(digests_.Records(), IsEmpty());
}

TEST_F(SigListReadTest, NameOf95CharactersFits96DoNot) {
  const std::string name95(95, 'n');
  EXPECT_EQ(ReadSection("FILENAME=" + name95 + "\nFILETYPE=1\nSHA256-DIGEST=" + appDigest_ + "\n"),
            0u);
  EXPECT_EQ(ReadSection("FILENAME=" + name95 + "m\nFILETYPE=1\nSHA256-DIGEST=" + appDigest_ + "\n"),
            1u);
  EXPECT_THAT(digests_.Records(), ElementsAre(RecordView{1, 1, name95, appDigest_}));
  EXPECT_THAT(MainLog(), ElementsAre(kCopyFailed, kNameEmpty, kReadFailed));
}

TEST_F(SigListReadTest, DigestEmptyMissingOrTooLong) {
  EXPECT_EQ(ReadSection("FILENAME=a\nFILETYPE=1\nSHA256-DIGEST=\n"), 1u);
  EXPECT_EQ(ReadSection("FILENAME=a\nFILETYPE=1\n"), 1u);
  EXPECT_EQ(ReadSection("FILENAME=a\nFILETYPE=1\nSHA256-DIGEST=" + appDigest_ + "0\n"), 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kDigestEmpty, kReadFailed, kDigestEmpty, kReadFailed,
                                     kCopyFailed, kDigestEmpty, kReadFailed));
  EXPECT_THAT(digests_.Records(), IsEmpty());
}

TEST_F(SigListReadTest, DigestIsKeptAsWritten) {
  // The reader does not judge the text; the comparison with a file's digest does.
  EXPECT_EQ(ReadSection("FILENAME=a\nFILETYPE=1\nSHA256-DIGEST=not hex\n"), 0u);
  EXPECT_THAT(digests_.Records(), ElementsAre(RecordView{1, 1, "a", "not hex"}));
}

TEST_F(SigListReadTest, SectionWithoutAnyKey) {
  EXPECT_EQ(Read(BothFiles() + "[EMPTY]\n"), 1u);
  EXPECT_EQ(digests_.Records().size(), 2u);
  EXPECT_THAT(MainLog(), ElementsAre(kNameEmpty, kReadFailed));
}

TEST_F(SigListReadTest, EmptyArguments) {
  EXPECT_EQ(BOOT_INIT_GetDigestInfoFromSignatureFileList(nullptr, digests_.get()), 0x10000001u);
  EXPECT_EQ(BOOT_INIT_GetDigestInfoFromSignatureFileList(kSigList.c_str(), nullptr), 0x10000001u);
  EXPECT_THAT(MainLog(), ElementsAre(kNullParam, kNullParam));
}

// ---- adding the file sections alone ----

using SigListAddTest = SigListReadTest;

TEST_F(SigListAddTest, MainSectionIsNotLookedAt) {
  WriteFile(kSigList,
            "[anything]\nCreate By=someone else\n" + SectionText(0, {kAppName, "1", appDigest_}));
  EXPECT_EQ(BOOT_INIT_AddSigFileDigestInfoToList(digests_.get(), kSigList.c_str()), 0u);
  EXPECT_THAT(digests_.Records(), ElementsAre(App()));
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(SigListAddTest, OnlyAMainSectionAddsNothing) {
  WriteFile(kSigList, MainSection(kCreator, "1"));
  EXPECT_EQ(BOOT_INIT_AddSigFileDigestInfoToList(digests_.get(), kSigList.c_str()), 0u);
  EXPECT_THAT(digests_.Records(), IsEmpty());
}

TEST_F(SigListAddTest, FileThatCannotBeOpened) {
  const std::string missing = kPkgDir + "/none.ini";
  EXPECT_EQ(BOOT_INIT_AddSigFileDigestInfoToList(digests_.get(), missing.c_str()), 2u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:can't open file[" + missing +
                                     "], uiRet=2, errno = 2"));
}

TEST_F(SigListAddTest, FileWithoutAProfile) {
  for (const std::string text : {"", "# only a comment\n", "key=before any section\n"}) {
    WriteFile(kSigList, text);
    EXPECT_EQ(BOOT_INIT_AddSigFileDigestInfoToList(digests_.get(), kSigList.c_str()), 0x10000002u)
        << text;
  }
  // A directory opens, but cannot be read.
  EXPECT_EQ(BOOT_INIT_AddSigFileDigestInfoToList(digests_.get(), kPkgDir.c_str()), 0x10000002u);
  EXPECT_THAT(MainLog(), ElementsAre(kNullParam, kNullParam, kNullParam, kNullParam));
  EXPECT_THAT(digests_.Records(), IsEmpty());
}

TEST_F(SigListAddTest, EmptyArguments) {
  EXPECT_EQ(BOOT_INIT_AddSigFileDigestInfoToList(nullptr, kSigList.c_str()), 0x10000001u);
  EXPECT_EQ(BOOT_INIT_AddSigFileDigestInfoToList(digests_.get(), nullptr), 0x10000001u);
  EXPECT_THAT(MainLog(), ElementsAre(kNullParam, kNullParam));
}

TEST_F(SigListAddTest, NoMemoryForARecord) {
  WriteFile(kSigList, BothFiles());
  listfaults::Get().callocFailSize = BOOT_INIT_SIG_DIGEST_NODE_ALLOC;
  EXPECT_EQ(BOOT_INIT_AddSigFileDigestInfoToList(digests_.get(), kSigList.c_str()), 0x10000005u);
  EXPECT_EQ(listfaults::Get().callocFailed, 1);
  EXPECT_THAT(digests_.Records(), IsEmpty());
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(SigListAddTest, NameCopyIntoTheRecordFails) {
  WriteFile(kSigList, BothFiles());
  // The first copy of the name is the key lookup's, the second the record's.
  listfaults::Get().strcpyFailSource = kKernelName;
  listfaults::Get().strcpyFailAt = 2;
  EXPECT_EQ(BOOT_INIT_AddSigFileDigestInfoToList(digests_.get(), kSigList.c_str()), 1u);
  EXPECT_EQ(listfaults::Get().strcpyFailed, 1);
  EXPECT_THAT(digests_.Records(), ElementsAre(App()));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Strcpy_s failed, iRet = 162"));
}

// ---- one key of a key list ----

class SigListKeyTest : public listtest::ListCheckTest {
 protected:
  void SetUp() override {
    ListCheckTest::SetUp();
    Key(keys_[0], "A", "first");
    Key(keys_[1], "B", "second");
    Key(keys_[2], "A", "third");
    keys_[0].next = &keys_[1];
    keys_[1].next = &keys_[2];
  }
  static void Key(SWM_INI_KEY_S &key, const std::string &name, const std::string &value) {
    key = {};
    name.copy(key.name, sizeof(key.name) - 1);
    value.copy(key.value, sizeof(key.value) - 1);
  }
  SWM_INI_KEY_S keys_[3] = {};
};

TEST_F(SigListKeyTest, FirstKeyOfThatName) {
  char out[16] = "unchanged";
  BOOT_INIT_GetOneKeyValueFromKeyList(keys_, "A", out, sizeof(out));
  EXPECT_STREQ(out, "first");
  BOOT_INIT_GetOneKeyValueFromKeyList(keys_, "B", out, sizeof(out));
  EXPECT_STREQ(out, "second");
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(SigListKeyTest, NamesAreCaseSensitive) {
  char out[16] = "unchanged";
  BOOT_INIT_GetOneKeyValueFromKeyList(keys_, "a", out, sizeof(out));
  EXPECT_STREQ(out, "unchanged");
}

TEST_F(SigListKeyTest, AbsentKeyOrEmptyChainLeavesTheBuffer) {
  char out[16] = "unchanged";
  BOOT_INIT_GetOneKeyValueFromKeyList(keys_, "C", out, sizeof(out));
  EXPECT_STREQ(out, "unchanged");
  BOOT_INIT_GetOneKeyValueFromKeyList(nullptr, "A", out, sizeof(out));
  EXPECT_STREQ(out, "unchanged");
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(SigListKeyTest, ValueMustFitWithItsTerminator) {
  char out[6] = "xxxxx";
  BOOT_INIT_GetOneKeyValueFromKeyList(keys_, "A", out, sizeof(out));  // "first" fits exactly
  EXPECT_STREQ(out, "first");
  BOOT_INIT_GetOneKeyValueFromKeyList(keys_, "B", out, sizeof(out));  // "second" does not
  EXPECT_STREQ(out, "");
  EXPECT_THAT(MainLog(), ElementsAre(kCopyFailed));
}

TEST_F(SigListKeyTest, EmptyArgumentsDoNothing) {
  char out[8] = "keep";
  BOOT_INIT_GetOneKeyValueFromKeyList(keys_, nullptr, out, sizeof(out));
  BOOT_INIT_GetOneKeyValueFromKeyList(keys_, "A", out, 0);
  EXPECT_STREQ(out, "keep");
  BOOT_INIT_GetOneKeyValueFromKeyList(keys_, "A", nullptr, sizeof(out));
  EXPECT_THAT(MainLog(), IsEmpty());
}

// ---- one file against its record ----

class SigListFileTest : public SigListReadTest {
 protected:
  void SetUp() override {
    SigListReadTest::SetUp();
    ASSERT_EQ(Read(BothFiles()), 0u);
  }
  uint32_t Check(const std::string &path, const std::string &name) {
    return BOOT_INIT_VerifySpecificFileHashValue(path.c_str(), name.c_str(), digests_.get());
  }
};

TEST_F(SigListFileTest, FileWithItsDigest) {
  EXPECT_EQ(Check(kAppPath, kAppName), 0u);
  EXPECT_EQ(Check(kKernelPath, kKernelName), 0u);
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(SigListFileTest, FileWithAnotherDigest) {
  EXPECT_EQ(Check(kKernelPath, kAppName), 1u);
  WriteFile(kAppPath, "application image, changed\n");
  EXPECT_EQ(Check(kAppPath, kAppName), 1u);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Verify file " + kKernelPath + " hash value failed.",
                          "[BOOT_INIT][ERROR]:Verify file " + kAppPath + " hash value failed."));
}

TEST_F(SigListFileTest, DigestInOtherLetterCaseDoesNotMatch) {
  Digests upper;
  WriteFile(kSigList, SignatureList({{kAppName, "1", listtest::Upper(appDigest_)}}));
  ASSERT_EQ(BOOT_INIT_GetDigestInfoFromSignatureFileList(kSigList.c_str(), upper.get()), 0u);
  ASSERT_NE(listtest::Upper(appDigest_), appDigest_);
  EXPECT_EQ(BOOT_INIT_VerifySpecificFileHashValue(kAppPath.c_str(), kAppName.c_str(), upper.get()),
            1u);
}

TEST_F(SigListFileTest, FirstRecordOfTheNameDecides) {
  Digests twice;
  WriteFile(kSigList, SignatureList({{kAppName, "1", kernelDigest_}, {kAppName, "1", appDigest_}}));
  ASSERT_EQ(BOOT_INIT_GetDigestInfoFromSignatureFileList(kSigList.c_str(), twice.get()), 0u);
  EXPECT_EQ(BOOT_INIT_VerifySpecificFileHashValue(kAppPath.c_str(), kAppName.c_str(), twice.get()),
            1u);
  Digests reversed;
  WriteFile(kSigList, SignatureList({{kAppName, "1", appDigest_}, {kAppName, "1", kernelDigest_}}));
  ASSERT_EQ(BOOT_INIT_GetDigestInfoFromSignatureFileList(kSigList.c_str(), reversed.get()), 0u);
  EXPECT_EQ(
      BOOT_INIT_VerifySpecificFileHashValue(kAppPath.c_str(), kAppName.c_str(), reversed.get()),
      0u);
}

TEST_F(SigListFileTest, NameNotInTheList) {
  EXPECT_EQ(Check(kAppPath, "APP.BIN"), 1u);
  Digests empty;
  EXPECT_EQ(BOOT_INIT_VerifySpecificFileHashValue(kAppPath.c_str(), kAppName.c_str(), empty.get()),
            1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Can not find specific file:APP.BIN",
                                     "[BOOT_INIT][ERROR]:Can not find specific file:" + kAppName));
}

TEST_F(SigListFileTest, FileMissing) {
  testsupport::RemovePath(kAppPath);
  EXPECT_EQ(Check(kAppPath, kAppName), 0x10000003u);
  EXPECT_THAT(MainLog(), ElementsAre(kFileMissing));
}

TEST_F(SigListFileTest, EmptyArguments) {
  EXPECT_EQ(BOOT_INIT_VerifySpecificFileHashValue(nullptr, kAppName.c_str(), digests_.get()),
            0x10000001u);
  EXPECT_EQ(BOOT_INIT_VerifySpecificFileHashValue(kAppPath.c_str(), nullptr, digests_.get()),
            0x10000001u);
  EXPECT_EQ(BOOT_INIT_VerifySpecificFileHashValue(kAppPath.c_str(), kAppName.c_str(), nullptr),
            0x10000001u);
  EXPECT_THAT(MainLog(), ElementsAre(kNullParam, kNullParam, kNullParam));
}

// ---- sub-operation 3 ----

class SigListOperTest : public listtest::ListCheckTest {
 protected:
  void SetUp() override {
    ListCheckTest::SetUp();
    WriteFile(kSigList, BothFiles());
  }
  static testsupport::OperationOutput Verify(const std::string &name,
                                             const std::string &dir = kPkgDir,
                                             const std::string &list = kSigList) {
    return RunOperation(BOOT_INIT_VerifyFileInSignatureFileList, {dir, name, list});
  }
  static std::string Success(const std::string &path) {
    return "[BOOT_INIT][SECURITY]verify specific file success, file = " + path;
  }
  static std::string Failed(const std::string &path, uint32_t result) {
    return "[BOOT_INIT][SECURITY]verify specific file failed, file = " + path +
           ", result = " + std::to_string(result);
  }
  static std::string FailedMain(uint32_t result) {
    return "[BOOT_INIT][ERROR]:verify specific file failed, result = " + std::to_string(result);
  }
};

TEST_F(SigListOperTest, FileWithItsDigest) {
  const auto op = Verify(kKernelName);
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "");
  EXPECT_THAT(MainLog(), IsEmpty());
  EXPECT_THAT(SafeLog(), ElementsAre(Success(kKernelPath)));
}

TEST_F(SigListOperTest, ChangedFileFailsAndTheSuccessLineFollows) {
  WriteFile(kAppPath, "application image, changed\n");
  const std::string list = ReadFile(kSigList);
  const auto op = Verify(kAppName);
  EXPECT_EQ(op.result, 1u);
  EXPECT_EQ(op.out, "");
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Verify file " + kAppPath + " hash value failed.",
                          FailedMain(1)));
  EXPECT_THAT(SafeLog(), ElementsAre(Failed(kAppPath, 1), Success(kAppPath)));
  // A failed check changes nothing on disk.
  EXPECT_EQ(ReadFile(kAppPath), "application image, changed\n");
  EXPECT_EQ(ReadFile(kSigList), list);
}

TEST_F(SigListOperTest, NameNotInTheList) {
  testsupport::WriteFile(kPkgDir + "/extra.bin", "x");
  const auto op = Verify("extra.bin");
  EXPECT_EQ(op.result, 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Can not find specific file:extra.bin",
                                     FailedMain(1)));
  EXPECT_THAT(SafeLog(),
              ElementsAre(Failed(kPkgDir + "/extra.bin", 1), Success(kPkgDir + "/extra.bin")));
}

TEST_F(SigListOperTest, FileMissing) {
  testsupport::RemovePath(kAppPath);
  const auto op = Verify(kAppName);
  EXPECT_EQ(op.result, 0x10000003u);
  EXPECT_THAT(MainLog(), ElementsAre(kFileMissing, FailedMain(0x10000003)));
  EXPECT_THAT(SafeLog(), ElementsAre(Failed(kAppPath, 0x10000003), Success(kAppPath)));
}

TEST_F(SigListOperTest, ListMissing) {
  testsupport::RemovePath(kSigList);
  const auto op = Verify(kAppName);
  EXPECT_EQ(op.result, 0x10000003u);
  EXPECT_THAT(MainLog(), ElementsAre(kFileMissing));
  EXPECT_THAT(SafeLog(), IsEmpty());
}

TEST_F(SigListOperTest, ListThatCannotBeRead) {
  WriteFile(kSigList, MainSection("Someone Else", "2"));
  const auto op = Verify(kAppName);
  EXPECT_EQ(op.result, 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:vrify create by failed, info = Someone Else",
                          "[BOOT_INIT][ERROR]:Get Digest Info from signature file list "
                          "failed(0xffffffff)"));
  EXPECT_THAT(SafeLog(), IsEmpty());
}

TEST_F(SigListOperTest, ListFailingHalfWayReleasesItsRecords) {
  // The first record is read before the second section fails; the sanitizer tree would report
  // it if it were not released.
  WriteFile(kSigList, SignatureList({{kAppName, "1", appDigest_}, {kKernelName, "0", ""}}));
  const auto op = Verify(kAppName);
  EXPECT_EQ(op.result, 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:File type is error, FileTypeStr = 0",
                                     "[BOOT_INIT][ERROR]:[Get DigestInfo from file list failed(1)",
                                     "[BOOT_INIT][ERROR]:Get Digest Info from signature file list "
                                     "failed(0x1)"));
}

TEST_F(SigListOperTest, PathThatDoesNotFitIsNotCut) {
  // 383 characters fit: a directory of 381 and a one-letter name is the longest path. A cut
  // path would name the file "x" of that directory, which is there and has the listed digest.
  const std::string dir = listtest::LongDir(381);
  ASSERT_EQ(dir.size(), 381u);
  WriteFile(dir + "/x", "application image\n");
  WriteFile(kSigList, SignatureList({{"xy", "1", appDigest_}}));
  const auto op = Verify("xy", dir);
  EXPECT_EQ(op.result, 0x10000003u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:snprintf unsuccessfully: "
                                     "BOOT_INIT_VerifyFileInSignatureFileList",
                                     kFileMissing, FailedMain(0x10000003)));
  EXPECT_THAT(SafeLog(), ElementsAre(Failed("", 0x10000003), Success("")));
}

TEST_F(SigListOperTest, LongestPathIsUsedWhole) {
  const std::string dir = listtest::LongDir(381);
  ASSERT_EQ(dir.size(), 381u);
  WriteFile(dir + "/x", "application image\n");
  WriteFile(kSigList, SignatureList({{"x", "1", appDigest_}}));
  const auto op = Verify("x", dir);
  EXPECT_EQ(op.result, 0u);
  EXPECT_THAT(MainLog(), IsEmpty());
  EXPECT_THAT(SafeLog(), ElementsAre(Success(dir + "/x")));
}

TEST_F(SigListOperTest, ArgumentCount) {
  for (const std::vector<std::string> &args :
       {std::vector<std::string>{}, {kPkgDir, kAppName}, {kPkgDir, kAppName, kSigList, "x"}}) {
    testsupport::ClearMainLog();
    const auto op = RunOperation(BOOT_INIT_VerifyFileInSignatureFileList, args);
    EXPECT_EQ(op.result, 0x10000001u);
    EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:verify specific file, para count is "
                                       "invalid, iArgc = " +
                                       std::to_string(args.size())));
  }
  EXPECT_THAT(SafeLog(), IsEmpty());
}

}  // namespace
