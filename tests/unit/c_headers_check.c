/* Every public header must stay usable from strict C. This file only has to compile. */
#include "bootinit/base.h"
#include "bootinit/common.h"
#include "bootinit/dispatch.h"
#include "bootinit/log.h"
#include "boundedstr.h"
#include "swm.h"
#include "tkal.h"

int c_headers_check_anchor(void);
int c_headers_check_anchor(void) { return (int)sizeof(BOOT_INIT_LOG_INFO_S); }
