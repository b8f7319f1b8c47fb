// memcpy_s and memset_s: results, destination contents after every failure, and the bytes
// just past destMax, which must never change.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

#include "boundedstr.h"

namespace {

constexpr unsigned char kGuard = 0xA5;
constexpr std::size_t kDestMax = 8;

// A destination of kDestMax bytes followed by guard bytes that no call may touch.
struct GuardedBuffer {
  std::array<unsigned char, kDestMax + 8> bytes{};

  GuardedBuffer() { bytes.fill(kGuard); }
  unsigned char *dest() { return bytes.data(); }
  bool guard_intact() const {
    for (std::size_t i = kDestMax; i < bytes.size(); ++i) {
      if (bytes[i] != kGuard) {
        return false;
      }
    }
    return true;
  }
  bool all_zero(std::size_t n) const {
    for (std::size_t i = 0; i < n; ++i) {
      if (bytes[i] != 0) {
        return false;
      }
    }
    return true;
  }
  bool all_equal(std::size_t n, unsigned char value) const {
    for (std::size_t i = 0; i < n; ++i) {
      if (bytes[i] != value) {
        return false;
      }
    }
    return true;
  }
};

const std::array<unsigned char, 16> kSource{'0', '1', '2', '3', '4', '5', '6', '7',
                                            '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};

// ------------------------------------------------------------------------------------- memcpy_s

TEST(MemcpyS, CopiesCountBytes) {
  GuardedBuffer buf;
  EXPECT_EQ(memcpy_s(buf.dest(), kDestMax, kSource.data(), 5), EOK);
  EXPECT_EQ(std::memcmp(buf.dest(), "01234", 5), 0);
  EXPECT_EQ(buf.bytes[5], kGuard);
  EXPECT_TRUE(buf.guard_intact());
}

TEST(MemcpyS, CountOneBelowDestMaxLeavesLastByte) {
  GuardedBuffer buf;
  EXPECT_EQ(memcpy_s(buf.dest(), kDestMax, kSource.data(), kDestMax - 1), EOK);
  EXPECT_EQ(std::memcmp(buf.dest(), "0123456", kDestMax - 1), 0);
  EXPECT_EQ(buf.bytes[kDestMax - 1], kGuard);
  EXPECT_TRUE(buf.guard_intact());
}

TEST(MemcpyS, CountEqualToDestMaxFillsExactly) {
  GuardedBuffer buf;
  EXPECT_EQ(memcpy_s(buf.dest(), kDestMax, kSource.data(), kDestMax), EOK);
  EXPECT_EQ(std::memcmp(buf.dest(), "01234567", kDestMax), 0);
  EXPECT_TRUE(buf.guard_intact());
}

TEST(MemcpyS, CountOneAboveDestMaxZeroesDestination) {
  GuardedBuffer buf;
  EXPECT_EQ(memcpy_s(buf.dest(), kDestMax, kSource.data(), kDestMax + 1), BOUNDED_ERANGE_AND_RESET);
  EXPECT_TRUE(buf.all_zero(kDestMax));
  EXPECT_TRUE(buf.guard_intact());
}

TEST(MemcpyS, CountZeroSucceedsWithoutWriting) {
  GuardedBuffer buf;
  EXPECT_EQ(memcpy_s(buf.dest(), kDestMax, kSource.data(), 0), EOK);
  EXPECT_TRUE(buf.all_equal(kDestMax, kGuard));
}

TEST(MemcpyS, NullDestinationIsInvalid) {
  EXPECT_EQ(memcpy_s(nullptr, kDestMax, kSource.data(), 4), BOUNDED_EINVAL);
}

TEST(MemcpyS, ZeroDestMaxIsRangeErrorAndTouchesNothing) {
  GuardedBuffer buf;
  EXPECT_EQ(memcpy_s(buf.dest(), 0, kSource.data(), 0), BOUNDED_ERANGE);
  EXPECT_TRUE(buf.all_equal(kDestMax, kGuard));
}

TEST(MemcpyS, DestMaxCheckedBeforeDestinationPointer) {
  EXPECT_EQ(memcpy_s(nullptr, 0, kSource.data(), 0), BOUNDED_ERANGE);
}

TEST(MemcpyS, DestMaxBeyondLimitIsRangeErrorAndTouchesNothing) {
  GuardedBuffer buf;
  EXPECT_EQ(memcpy_s(buf.dest(), BOUNDED_MAX_LEN + 1, kSource.data(), 4), BOUNDED_ERANGE);
  EXPECT_TRUE(buf.all_equal(kDestMax, kGuard));
}

TEST(MemcpyS, DestMaxAtLimitIsAccepted) {
  GuardedBuffer buf;
  EXPECT_EQ(memcpy_s(buf.dest(), BOUNDED_MAX_LEN, kSource.data(), 3), EOK);
  EXPECT_EQ(std::memcmp(buf.dest(), "012", 3), 0);
  EXPECT_EQ(buf.bytes[3], kGuard);
}

TEST(MemcpyS, NullSourceZeroesDestination) {
  GuardedBuffer buf;
  EXPECT_EQ(memcpy_s(buf.dest(), kDestMax, nullptr, 4), BOUNDED_EINVAL_AND_RESET);
  EXPECT_TRUE(buf.all_zero(kDestMax));
  EXPECT_TRUE(buf.guard_intact());
}

TEST(MemcpyS, NullSourceIsAnErrorEvenForCountZero) {
  GuardedBuffer buf;
  EXPECT_EQ(memcpy_s(buf.dest(), kDestMax, nullptr, 0), BOUNDED_EINVAL_AND_RESET);
  EXPECT_TRUE(buf.all_zero(kDestMax));
}

TEST(MemcpyS, SourceAfterDestinationOverlapping) {
  std::array<unsigned char, 16> bytes{};
  std::memcpy(bytes.data(), kSource.data(), bytes.size());
  EXPECT_EQ(memcpy_s(bytes.data(), 8, bytes.data() + 3, 4), BOUNDED_EOVERLAP_AND_RESET);
  for (std::size_t i = 0; i < 8; ++i) {
    EXPECT_EQ(bytes[i], 0) << i;
  }
  EXPECT_EQ(std::memcmp(bytes.data() + 8, "89abcdef", 8), 0);
}

TEST(MemcpyS, SourceBeforeDestinationOverlapping) {
  std::array<unsigned char, 16> bytes{};
  std::memcpy(bytes.data(), kSource.data(), bytes.size());
  EXPECT_EQ(memcpy_s(bytes.data() + 4, 8, bytes.data() + 1, 4), BOUNDED_EOVERLAP_AND_RESET);
  EXPECT_EQ(std::memcmp(bytes.data(), "0123", 4), 0);
  for (std::size_t i = 4; i < 12; ++i) {
    EXPECT_EQ(bytes[i], 0) << i;
  }
  EXPECT_EQ(std::memcmp(bytes.data() + 12, "cdef", 4), 0);
}

TEST(MemcpyS, SourceEqualToDestinationOverlaps) {
  std::array<unsigned char, 8> bytes{1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(memcpy_s(bytes.data(), bytes.size(), bytes.data(), 1), BOUNDED_EOVERLAP_AND_RESET);
  EXPECT_EQ(bytes, (std::array<unsigned char, 8>{}));
}

TEST(MemcpyS, AdjacentRangesDoNotOverlap) {
  std::array<unsigned char, 16> bytes{};
  std::memcpy(bytes.data(), kSource.data(), bytes.size());
  // [0, 4) and [4, 8) touch but share no byte.
  EXPECT_EQ(memcpy_s(bytes.data(), 8, bytes.data() + 4, 4), EOK);
  EXPECT_EQ(std::memcmp(bytes.data(), "456745678", 9), 0);
  // Same the other way round: [4, 8) from [0, 4).
  std::memcpy(bytes.data(), kSource.data(), bytes.size());
  EXPECT_EQ(memcpy_s(bytes.data() + 4, 4, bytes.data(), 4), EOK);
  EXPECT_EQ(std::memcmp(bytes.data(), "01230123", 8), 0);
}

TEST(MemcpyS, OverlapJudgedOnCountNotOnDestMax) {
  // The source lies inside the destination buffer but beyond the count bytes written.
  std::array<unsigned char, 16> bytes{};
  std::memcpy(bytes.data(), kSource.data(), bytes.size());
  EXPECT_EQ(memcpy_s(bytes.data(), 16, bytes.data() + 8, 2), EOK);
  EXPECT_EQ(std::memcmp(bytes.data(), "8923", 4), 0);
}

// ------------------------------------------------------------------------------------- memset_s

TEST(MemsetS, FillsCountBytes) {
  GuardedBuffer buf;
  EXPECT_EQ(memset_s(buf.dest(), kDestMax, 'x', 3), EOK);
  EXPECT_TRUE(buf.all_equal(3, 'x'));
  EXPECT_EQ(buf.bytes[3], kGuard);
  EXPECT_TRUE(buf.guard_intact());
}

TEST(MemsetS, CountOneBelowDestMax) {
  GuardedBuffer buf;
  EXPECT_EQ(memset_s(buf.dest(), kDestMax, 0, kDestMax - 1), EOK);
  EXPECT_TRUE(buf.all_zero(kDestMax - 1));
  EXPECT_EQ(buf.bytes[kDestMax - 1], kGuard);
}

TEST(MemsetS, CountEqualToDestMax) {
  GuardedBuffer buf;
  EXPECT_EQ(memset_s(buf.dest(), kDestMax, 0, kDestMax), EOK);
  EXPECT_TRUE(buf.all_zero(kDestMax));
  EXPECT_TRUE(buf.guard_intact());
}

TEST(MemsetS, CountOneAboveDestMaxFillsDestMaxBytes) {
  GuardedBuffer buf;
  EXPECT_EQ(memset_s(buf.dest(), kDestMax, 'z', kDestMax + 1), BOUNDED_ERANGE_AND_RESET);
  EXPECT_TRUE(buf.all_equal(kDestMax, 'z'));
  EXPECT_TRUE(buf.guard_intact());
}

TEST(MemsetS, UsesLowByteOfValue) {
  GuardedBuffer buf;
  EXPECT_EQ(memset_s(buf.dest(), kDestMax, 0x141, 2), EOK);
  EXPECT_TRUE(buf.all_equal(2, 0x41));
}

TEST(MemsetS, CountZeroWritesNothing) {
  GuardedBuffer buf;
  EXPECT_EQ(memset_s(buf.dest(), kDestMax, 0, 0), EOK);
  EXPECT_TRUE(buf.all_equal(kDestMax, kGuard));
}

TEST(MemsetS, NullDestinationIsInvalid) {
  EXPECT_EQ(memset_s(nullptr, kDestMax, 0, 1), BOUNDED_EINVAL);
}

TEST(MemsetS, BadDestMaxIsRangeErrorAndTouchesNothing) {
  GuardedBuffer buf;
  EXPECT_EQ(memset_s(buf.dest(), 0, 0, 0), BOUNDED_ERANGE);
  EXPECT_EQ(memset_s(buf.dest(), BOUNDED_MAX_LEN + 1, 0, 1), BOUNDED_ERANGE);
  EXPECT_TRUE(buf.all_equal(kDestMax, kGuard));
}

}  // namespace
