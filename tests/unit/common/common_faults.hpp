#pragma once

namespace commonfaults {

struct Faults {
  int attrInitResult = 0;
  int setDetachResult = 0;
  int createResult = 0;
  bool failCalloc = false;
  bool failMemset = false;
  int detachStateSeen = -1;
};

Faults &Get();
void Reset();

}  // namespace commonfaults
