/* Every public header must stay usable from strict C. This file only has to compile.
 * The headers use POSIX types (pthread_rwlock_t), which strict C sees only when asked for. */
#define _POSIX_C_SOURCE 200809L
#include "bootinit/base.h"
#include "bootinit/board.h"
#include "bootinit/common.h"
#include "bootinit/dispatch.h"
#include "bootinit/download.h"
#include "bootinit/extract.h"
#include "bootinit/log.h"
#include "bootinit/measure.h"
#include "bootinit/package.h"
#include "bootinit/startup.h"
#include "bootinit/verify.h"
#include "boundedstr.h"
#include "cmsvfy.h"
#include "drv.h"
#include "swm.h"
#include "tkal.h"

int c_headers_check_anchor(void);
int c_headers_check_anchor(void) { return (int)sizeof(BOOT_INIT_LOG_INFO_S); }
