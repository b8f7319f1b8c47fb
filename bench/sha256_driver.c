/*
 * sha256_bench_driver FILE: digests FILE once with BOOT_INIT_Sha256Get and prints
 * "<digest text> <seconds>" on one line, the seconds being the call's own wall-clock time
 * (the crypto library's loading included). Exit status 0, 1 when the call fails (its result is
 * printed to standard error), 2 for a usage error.
 */
#include <stdint.h>
#include <stdio.h>
#include <time.h>

#include "bootinit/common.h"

static double Seconds(const struct timespec *start, const struct timespec *end) {
  return (double)(end->tv_sec - start->tv_sec) + (double)(end->tv_nsec - start->tv_nsec) / 1e9;
}

int main(int argc, char **argv) {
  if (argc != 2) {
    (void)fprintf(stderr, "usage: %s FILE\n", argv[0]);
    return 2;
  }
  uint8_t digest[BOOT_INIT_SHA256_LEN] = {0};
  char text[BOOT_INIT_SHA256_TEXT_LEN] = {0};
  struct timespec start;
  struct timespec end;
  (void)clock_gettime(CLOCK_MONOTONIC, &start);
  const uint32_t result = BOOT_INIT_Sha256Get(argv[1], digest, BOOT_INIT_SHA256_LEN);
  (void)clock_gettime(CLOCK_MONOTONIC, &end);
  if (result != 0) {
    (void)fprintf(stderr, "BOOT_INIT_Sha256Get: result 0x%X\n", (unsigned int)result);
    return 1;
  }
  BOOT_INIT_TransHashValueToString(digest, BOOT_INIT_SHA256_LEN, text, BOOT_INIT_SHA256_TEXT_LEN);
  (void)printf("%s %.6f\n", text, Seconds(&start, &end));
  return 0;
}
