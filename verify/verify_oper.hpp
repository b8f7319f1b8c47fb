// Operation 3's last step, apart from the table so that every verdict can be tested, also for
// the sub-operations this build does not offer yet.
#pragma once

#include <cstdint>

namespace bootinit::verifyoper {

// Logs the verdict of the sub-operation of verifyType that answered result, and returns the
// result of operation 3.
uint32_t FinishVerify(uint32_t verifyType, uint32_t result);

}  // namespace bootinit::verifyoper
