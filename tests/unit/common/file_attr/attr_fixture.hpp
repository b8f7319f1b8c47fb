// The fixture shared by the label and attribute tests: empty logs, an empty /opt/attr, the
// library seams at rest.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <link.h>

#include <string>

#include "attr_support.hpp"
#include "format_faults.hpp"

namespace attrtest {

class AttrTest : public testing::Test {
 protected:
  void SetUp() override {
    testsupport::StartWithEmptyLogs();
    testsupport::RemovePath(kDir);
    testsupport::MakeDir(kDir);
    formatfaults::Reset();
    dlcount::Reset();
  }
  void TearDown() override { formatfaults::Reset(); }
};

// Where the loader finds the label library on this board ("" when it finds none).
inline std::string LabelLibraryFile() {
  void *handle = dlcount::OpenUncounted(kLabelLibrary, RTLD_NOW);
  if (handle == nullptr) {
    return {};
  }
  link_map *map = nullptr;
  std::string file;
  if (::dlinfo(handle, RTLD_DI_LINKMAP, &map) == 0 && map != nullptr) {
    file = map->l_name;
  }
  (void)dlcount::CloseUncounted(handle);
  return file;
}

}  // namespace attrtest
