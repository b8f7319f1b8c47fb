#pragma once

namespace commonfaults {

struct Faults {
  int attrInitResult = 0;
  int setDetachResult = 0;
  int createResult = 0;
  bool failCalloc = false;
  int callocFailAt = 0;  // the n-th calloc from now fails (1 = the next one); 0: none
  int callocSeen = 0;
  unsigned splitResult = 0;  // non-zero: SWM_TransString2Array fails with it
  bool failMemset = false;
  int detachStateSeen = -1;
};

Faults &Get();
void Reset();

}  // namespace commonfaults
