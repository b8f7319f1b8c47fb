/*
 * package_traversal_bench_driver PACKAGE LIST: builds the file index of PACKAGE, places the
 * digests of its signature file list LIST (a copy of the list taken out of the package
 * beforehand) and checks every indexed file against them, once. Prints "<result> <seconds>" on
 * one line: the result of the first step that failed (0x0 when all succeeded) and the
 * wall-clock time from before the index build to after the traversal. The logs are set up and
 * the index initialised before that time, and the index is released after it. Exit status 0,
 * 1 when a step fails (it is named on standard error), 2 for a usage error.
 */
#include <stdint.h>
#include <stdio.h>
#include <time.h>

#include "bootinit/log.h"
#include "bootinit/package.h"

/* Neither BOOT_PKG_SELECT_NOT_VERITY nor BOOT_PKG_SELECT_VERITY: the traversal then checks every
 * indexed file that has a digest, whatever the verity table holds. */
#define SELECT_EVERY_FILE 0u

static double Seconds(const struct timespec *start, const struct timespec *end) {
  return (double)(end->tv_sec - start->tv_sec) + (double)(end->tv_nsec - start->tv_nsec) / 1e9;
}

static uint32_t Report(const char *step, uint32_t result) {
  if (result != 0) {
    (void)fprintf(stderr, "%s: result 0x%X\n", step, (unsigned int)result);
  }
  return result;
}

/* The timed part: index, digests, traversal, stopping at the first step that fails. */
static uint32_t IndexAndTraverse(const char *package, const char *list) {
  uint32_t result = Report("BOOT_GetPkgAndFilesHeader", BOOT_GetPkgAndFilesHeader(package));
  if (result == 0) {
    result = Report("BOOT_ReadSignatureFileList", BOOT_ReadSignatureFileList(list));
  }
  if (result == 0) {
    result =
        Report("BOOT_VerifyFilesTravHashTable", BOOT_VerifyFilesTravHashTable(SELECT_EVERY_FILE));
  }
  return result;
}

int main(int argc, char **argv) {
  if (argc != 3) {
    (void)fprintf(stderr, "usage: %s PACKAGE LIST\n", argv[0]);
    return 2;
  }
  /* A boot operation logs through the front-end's set-up; the log lines of the traversal are
   * part of its cost, so they are written here too. */
  (void)BOOT_INIT_LogInit();
  if (Report("BOOT_InitPkgVerify", BOOT_InitPkgVerify()) != 0) {
    return 1;
  }
  struct timespec start;
  struct timespec end;
  (void)clock_gettime(CLOCK_MONOTONIC, &start);
  const uint32_t result = IndexAndTraverse(argv[1], argv[2]);
  (void)clock_gettime(CLOCK_MONOTONIC, &end);
  BOOT_DeinitPkgVerify();
  (void)printf("0x%X %.6f\n", (unsigned int)result, Seconds(&start, &end));
  return result == 0 ? 0 : 1;
}
