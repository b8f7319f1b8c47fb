// Log texts that several modules write with the same words. They are macros so that the
// compiler still checks each format against its arguments.
#pragma once

#define BOOTINIT_MSG_NULL_PARAM_1 "[BOOT_INIT][ERROR]:input param is null when check null 1"
#define BOOTINIT_MSG_SNPRINTF_FAILED "[BOOT_INIT][ERROR]:snprintf unsuccessfully: %s"
#define BOOTINIT_MSG_MEMSET_FAILED "[BOOT_INIT][WARNING]:memset unsuccessfully: %s, line: %d"
#define BOOTINIT_MSG_STRCPY_FAILED "[BOOT_INIT][ERROR]:strcpy unsuccessfully: %s"
