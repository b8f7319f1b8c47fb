// Extraction on boards without any crypto library: the signature files still come out and their
// CMS signature is still checked (the platform does that), but no file can be proven, so none
// is written.
#include <dlfcn.h>

#include <map>
#include <string>
#include <vector>

#include "extract_fixture.hpp"

namespace extracttest {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testsupport::MainLog;

std::vector<std::string> NoCrypto() {
  return {"[BOOT_INIT][ERROR]:dlopen backup so libcrypto.so.1.0.0 unsuccessfully, reason:" +
              testsupport::DlopenReason("libcrypto.so.1.0.0", RTLD_LAZY),
          "[BOOT_INIT][ERROR]:load crypto symbols failed"};
}

class ExtractHiddenCryptoTest : public ExtractTest {
 protected:
  void SetUp() override {
    ExtractTest::SetUp();
    ASSERT_EQ(testsupport::DlopenReason("libcrypto.so", RTLD_LAZY).find("<opened>"),
              std::string::npos);
  }
};

TEST_F(ExtractHiddenCryptoTest, NoFileCanBeProven) {
  BuildThree();
  EXPECT_EQ(Extract("kernel.img.gz"), kNotFound);
  EXPECT_THAT(
      MainLog(),
      ElementsAreArray(Concat({NoCrypto(),
                               {"[BOOT_INIT][ERROR]:Get file(kernel.img.gz 5352) sha256 failed, "
                                "ret=4294967295."},
                               Missing("kernel.img.gz", kOutDir)})));
  EXPECT_THAT(SafeLog(), ElementsAre(PssSuccess("/tmp")));
  EXPECT_THAT(DirState(kOutDir), IsEmpty());
  EXPECT_THAT(TmpSignatureFiles(), IsEmpty());
}

TEST_F(ExtractHiddenCryptoTest, SignatureFilesNeedNoDigest) {
  BuildThree("classic");
  EXPECT_EQ(Extract("signature_filelist"), 0u);
  EXPECT_EQ(testsupport::ReadFile(Out("signature_filelist")),
            RecordBytes("signature_filelist", false));
  EXPECT_THAT(MainLog(), IsEmpty());
}

}  // namespace
}  // namespace extracttest
