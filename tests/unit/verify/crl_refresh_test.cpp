// Which CRL is newer (BOOT_INIT_CrlCompare) and whether the flash CRL must be replaced by a
// fetched one (BOOT_INIT_IsLocalCrlNeedRefresh), with the test PKI's CRLs: newer by number, by
// publication date when the numbers tie, across the two schemes; and every way a decision fails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "bootinit/verify.h"
#include "cms_fixture.hpp"
#include "cmsvfy.h"

using crltest::Area;
using crltest::PkiBytes;
using crltest::StoreInArea;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testsupport::MainLog;

namespace {

const std::string kFetched = "/var/lib/crl_upgrade";
const std::string kPssRead = "[BOOT_INIT][INFO]:Read pss crl from drv, ret=0";
const std::string kCompareFailed = "[BOOT_INIT][ERROR]:compare crl failed";

std::string DecodeFailed(const std::string &code) {
  return "[BOOT_INIT][ERROR]:CmsvfyDecodeCrlFile failed. ret[" + code + "]";
}

class CrlCompareTest : public cmstest::CmsTest {
 protected:
  // Compares the PKI's CRL fileCrl (as a file) with flashCrl (as bytes in memory).
  static uint32_t Compare(const std::string &fileCrl, const std::string &flashBytes,
                          uint32_t &needRefresh) {
    testsupport::WriteFile(kFetched, PkiBytes(fileCrl));
    return Released([&] {
      return BOOT_INIT_CrlCompare(kFetched.c_str(),
                                  reinterpret_cast<const uint8_t *>(flashBytes.data()),
                                  static_cast<uint32_t>(flashBytes.size()), &needRefresh);
    });
  }
  // 1 or 0 for a successful comparison; 77 when it failed.
  static uint32_t Newer(const std::string &fileCrl, const std::string &flashCrl) {
    uint32_t needRefresh = 77;
    const uint32_t ret = Compare(fileCrl, PkiBytes(flashCrl), needRefresh);
    EXPECT_EQ(ret, 0u) << fileCrl << " against " << flashCrl;
    return needRefresh;
  }
};

// ---- comparison ----

TEST_F(CrlCompareTest, HigherNumberIsNewer) {
  EXPECT_EQ(Newer("crl_newer.der", "crl_older.der"), 1u);
  EXPECT_EQ(Newer("crl_older.der", "crl_newer.der"), 0u);
  EXPECT_EQ(Newer("crl_revoking.der", "crl_empty.der"), 1u);
  EXPECT_THAT(MainLog(), IsEmpty());
  EXPECT_EQ(cmsfaults::Get().contextsMade, 3);
  EXPECT_EQ(cmsfaults::Get().crlsDecoded, 6);
}

TEST_F(CrlCompareTest, TheSameCrlIsNotNewer) {
  EXPECT_EQ(Newer("crl_newer.der", "crl_newer.der"), 0u);
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(CrlCompareTest, EqualNumbersAreDecidedByThePublicationDate) {
  EXPECT_EQ(Newer("crl_tie_late.der", "crl_tie_early.der"), 1u);
  EXPECT_EQ(Newer("crl_tie_early.der", "crl_tie_late.der"), 0u);
}

TEST_F(CrlCompareTest, SchemesCompareWithEachOther) {
  EXPECT_EQ(Newer("crl_pss_revoking.der", "crl_newer.der"), 1u);
  EXPECT_EQ(Newer("crl_newer.der", "crl_pss_revoking.der"), 0u);
  EXPECT_EQ(Newer("crl_revoking.der", "crl_pss_empty.der"), 1u);
}

TEST_F(CrlCompareTest, FileCrlOfAnotherRoot) {
  uint32_t needRefresh = 77;
  EXPECT_EQ(Compare("crl_foreign.der", PkiBytes("crl_older.der"), needRefresh), 0xFFFFFFFFu);
  EXPECT_EQ(needRefresh, 77u);
  EXPECT_THAT(MainLog(), ElementsAre(DecodeFailed("7c000007")));
  EXPECT_EQ(cmsfaults::Get().crlsDecoded, 0);
}

TEST_F(CrlCompareTest, FileThatIsNoCrl) {
  uint32_t needRefresh = 77;
  testsupport::WriteFile(kFetched, "no list");
  EXPECT_EQ(Released([&] {
              const std::string flash = PkiBytes("crl_older.der");
              return BOOT_INIT_CrlCompare(kFetched.c_str(),
                                          reinterpret_cast<const uint8_t *>(flash.data()),
                                          static_cast<uint32_t>(flash.size()), &needRefresh);
            }),
            0xFFFFFFFFu);
  EXPECT_EQ(needRefresh, 77u);
  EXPECT_THAT(MainLog(), ElementsAre(DecodeFailed("7c000005")));
}

// The file's CRL was decoded before the flash bytes failed; it is released again.
TEST_F(CrlCompareTest, FlashBytesThatAreNoCrl) {
  uint32_t needRefresh = 77;
  EXPECT_EQ(Compare("crl_newer.der", "damaged flash content", needRefresh), 0xFFFFFFFFu);
  EXPECT_EQ(needRefresh, 77u);
  EXPECT_THAT(MainLog(), ElementsAre(DecodeFailed("7c000005")));
  EXPECT_EQ(cmsfaults::Get().crlsDecoded, 1);
}

TEST_F(CrlCompareTest, FlashCrlOfAnotherRoot) {
  uint32_t needRefresh = 77;
  EXPECT_EQ(Compare("crl_newer.der", PkiBytes("crl_foreign.der"), needRefresh), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre(DecodeFailed("7c000007")));
}

// Two decoded CRLs of the same root always compare; a failure is forced.
TEST_F(CrlCompareTest, ComparisonFails) {
  cmsfaults::Get().compareResult = CMSVFY_ERR_CRL;
  uint32_t needRefresh = 77;
  EXPECT_EQ(Compare("crl_newer.der", PkiBytes("crl_older.der"), needRefresh), 0xFFFFFFFFu);
  EXPECT_EQ(needRefresh, 77u);
  EXPECT_THAT(MainLog(), ElementsAre(DecodeFailed("7c000005")));
  EXPECT_EQ(cmsfaults::Get().crlsDecoded, 2);
}

TEST_F(CrlCompareTest, ContextCannotBeCreated) {
  cmsfaults::Get().createCtxResult = CMSVFY_ERR_NOMEM;
  uint32_t needRefresh = 77;
  EXPECT_EQ(Compare("crl_newer.der", PkiBytes("crl_older.der"), needRefresh), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:CmsvfyVerifyCreateCtx failed. ret[7c000002]"));
}

TEST_F(CrlCompareTest, RootCertificateBufferCannotBeHad) {
  allocfaults::FailMallocOfSize(BOOT_INIT_ROOT_CERT_LEN);
  uint32_t needRefresh = 77;
  EXPECT_EQ(Compare("crl_newer.der", PkiBytes("crl_older.der"), needRefresh), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:[DIGITAL SIGNATURE]Initialize root "
                                     "certificate failed, errno: 12."));
}

TEST_F(CrlCompareTest, RootCertificateCopyFails) {
  cmsfaults::Get().failCopiesOfCount = {1024};
  uint32_t needRefresh = 77;
  EXPECT_EQ(Compare("crl_newer.der", PkiBytes("crl_older.der"), needRefresh), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:memcpy unsuccessfully: BOOT_INIT_CrlCompare",
                          "[BOOT_INIT][ERROR]:[DIGITAL SIGNATURE]CmsvfyVerifyAddCert failed. "
                          "ret[7c000004]"));
  EXPECT_EQ(cmsfaults::Get().crlsDecoded, 0);
}

TEST_F(CrlCompareTest, EmptyArguments) {
  uint32_t needRefresh = 77;
  const uint8_t byte = 0;
  EXPECT_EQ(BOOT_INIT_CrlCompare(nullptr, &byte, 1, &needRefresh), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_CrlCompare(kFetched.c_str(), nullptr, 1, &needRefresh), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_CrlCompare(kFetched.c_str(), &byte, 1, nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_IsLocalCrlNeedRefresh(nullptr), 0u);
  EXPECT_EQ(needRefresh, 77u);
  EXPECT_THAT(MainLog(), IsEmpty());
}

// ---- the refresh decision ----

class CrlRefreshTest : public cmstest::CmsTest {
 protected:
  static uint32_t NeedRefresh() {
    return Released([] { return BOOT_INIT_IsLocalCrlNeedRefresh(kFetched.c_str()); });
  }
  static void Fetched(const std::string &pkiCrl) {
    testsupport::WriteFile(kFetched, PkiBytes(pkiCrl));
  }
};

TEST_F(CrlRefreshTest, NewerFetchedCrl) {
  StoreInArea(Area::kClassic, PkiBytes("crl_older.der"));
  Fetched("crl_newer.der");
  EXPECT_EQ(NeedRefresh(), 1u);
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(CrlRefreshTest, OlderFetchedCrl) {
  StoreInArea(Area::kClassic, PkiBytes("crl_newer.der"));
  Fetched("crl_older.der");
  EXPECT_EQ(NeedRefresh(), 0u);
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(CrlRefreshTest, SameCrlAsInFlash) {
  StoreInArea(Area::kClassic, PkiBytes("crl_newer.der"));
  Fetched("crl_newer.der");
  EXPECT_EQ(NeedRefresh(), 0u);
}

// The PSS area is read first, and its CRL is the one compared.
TEST_F(CrlRefreshTest, PssAreaIsTheOneCompared) {
  StoreInArea(Area::kClassic, PkiBytes("crl_empty.der"));
  StoreInArea(Area::kPss, PkiBytes("crl_pss_revoking.der"));
  Fetched("crl_newer.der");
  EXPECT_EQ(NeedRefresh(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kPssRead));
}

TEST_F(CrlRefreshTest, MissingFetchedFile) {
  StoreInArea(Area::kClassic, PkiBytes("crl_older.der"));
  EXPECT_EQ(NeedRefresh(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:CRL UPGRADE: file "
                                     "/var/lib/crl_upgrade not exists, ignore it"));
}

// A flash without any CRL takes whatever was fetched, without a comparison.
TEST_F(CrlRefreshTest, FlashWithoutCrl) {
  testsupport::WriteFile(kFetched, "anything at all");
  EXPECT_EQ(NeedRefresh(), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:crl flash read failed, ret 2",
                                     "[BOOT_INIT][ERROR]:read crl from flash failed"));
  EXPECT_EQ(cmsfaults::Get().contextsMade, 0);
}

TEST_F(CrlRefreshTest, ErasedFlash) {
  crltest::EraseArea(Area::kPss);
  StoreInArea(Area::kClassic, PkiBytes("crl_newer.der"));
  Fetched("crl_older.der");
  EXPECT_EQ(NeedRefresh(), 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kPssRead, "[BOOT_INIT][INFO]:upgrade crl is empty."));
  EXPECT_EQ(cmsfaults::Get().contextsMade, 0);
}

TEST_F(CrlRefreshTest, UnreadableFlash) {
  StoreInArea(Area::kClassic, PkiBytes("crl_newer.der"));
  MainBoardWith({{"fail.drv_crl_read", "9"}});
  Fetched("crl_older.der");
  EXPECT_EQ(NeedRefresh(), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:crl flash read failed, ret 9",
                                     "[BOOT_INIT][ERROR]:read crl from flash failed"));
}

TEST_F(CrlRefreshTest, FetchedCrlOfAnotherRootNeverReplacesTheFlash) {
  StoreInArea(Area::kClassic, PkiBytes("crl_older.der"));
  Fetched("crl_foreign.der");
  EXPECT_EQ(NeedRefresh(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(DecodeFailed("7c000007"), kCompareFailed));
}

TEST_F(CrlRefreshTest, DamagedFlashCrlIsKept) {
  StoreInArea(Area::kClassic, "damaged flash content");
  Fetched("crl_newer.der");
  EXPECT_EQ(NeedRefresh(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(DecodeFailed("7c000005"), kCompareFailed));
}

TEST_F(CrlRefreshTest, BufferCannotBeHad) {
  StoreInArea(Area::kClassic, PkiBytes("crl_older.der"));
  Fetched("crl_newer.der");
  allocfaults::FailMallocOfSize(crltest::kCrlMaxLen);
  EXPECT_EQ(NeedRefresh(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:malloc crl buffer failed, errno 12"));
}

TEST_F(CrlRefreshTest, FailedZeroingIsOnlyAWarning) {
  StoreInArea(Area::kClassic, PkiBytes("crl_older.der"));
  Fetched("crl_newer.der");
  cmsfaults::Get().failCrlBufferZeroing = true;
  EXPECT_EQ(NeedRefresh(), 1u);
  EXPECT_THAT(MainLog(),
              ElementsAre(MatchesRegex(R"(\[BOOT_INIT\]\[WARNING\]:memset )"
                                       R"(unsuccessfully: )"
                                       R"(BOOT_INIT_IsLocalCrlNeedRefresh, line: [0-9]+)")));
}

}  // namespace
