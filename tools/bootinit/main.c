/*
 * bootinit: the boot-time front-end of libbootinit.
 *
 *   bootinit [--print-result] [--] OPERATION [ARGUMENT...]
 *
 * Prepares the boot logs once, then runs one operation with the arguments that follow the
 * program name. Standard output carries only the operation's own answers. The exit status is
 * 0 when the operation's result is 0 and 1 otherwise (2 for a usage error of the front-end).
 * With --print-result the numeric result is also written to standard error.
 */
#include <stdio.h>
#include <string.h>

#include "bootinit/dispatch.h"
#include "bootinit/log.h"

static const char kUsage[] =
    "usage: bootinit [--print-result] [--] OPERATION [ARGUMENT...]\n"
    "\n"
    "Runs one boot operation of libbootinit. OPERATION is its decimal number; the remaining\n"
    "arguments belong to the operation. Messages go to the boot log files, never to the\n"
    "terminal; standard output carries only the operation's answers.\n"
    "\n"
    "options (recognised only before OPERATION):\n"
    "  --print-result  also write \"bootinit: result <decimal> (0x<hex>)\" to standard error\n"
    "  --help, -h      show this text\n"
    "  --              end of options (use it before an OPERATION that begins with \"-\")\n"
    "\n"
    "exit status: 0 when the result is 0, 1 for any other result, 2 for a usage error.\n";

int main(int argc, char **argv) {
  int first = 1;
  int printResult = 0;
  /* Only the front-end's own words are options: "-1" is an operation number to be refused by
   * the library, not an unknown option. */
  for (; first < argc; ++first) {
    if (strcmp(argv[first], "--print-result") == 0) {
      printResult = 1;
    } else if (strcmp(argv[first], "--help") == 0 || strcmp(argv[first], "-h") == 0) {
      fputs(kUsage, stdout);
      return 0;
    } else if (strcmp(argv[first], "--") == 0) {
      ++first;
      break;
    } else {
      break;
    }
  }
  if (first >= argc) {
    fputs(kUsage, stderr);
    return 2;
  }

  (void)BOOT_INIT_LogInit();
  const uint32_t result = BOOT_INIT_DoOperation(argc - first, argv + first);
  if (fflush(stdout) != 0) {
    return 1;
  }
  if (printResult) {
    fprintf(stderr, "bootinit: result %u (0x%08X)\n", result, result);
  }
  return result == 0 ? 0 : 1;
}
