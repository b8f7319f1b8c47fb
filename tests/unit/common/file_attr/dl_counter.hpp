// Pass-through seams on dlopen and dlclose (wrapped at link time) that count how often the code
// under test opens the security-label library and closes what it opened. The test's own handle,
// which keeps the recording stand-in loaded, is taken around the seam and is not counted.
#pragma once

#include <string>

namespace dlcount {

struct Counts {
  int opened = 0;  // successful opens of the label library
  int closed = 0;  // closes of handles those opens returned
  int live = 0;    // handles opened and not closed yet
};

Counts Get();
void Reset();

// dlopen/dlclose that the seam does not count.
void *OpenUncounted(const std::string &name, int flags);
int CloseUncounted(void *handle);

}  // namespace dlcount
