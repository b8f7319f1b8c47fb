/*
 * Measurement of what boots into the TPM.
 */
#ifndef BOOTINIT_MEASURE_H
#define BOOTINIT_MEASURE_H

#include "bootinit/base.h"

BOOTINIT_EXTERN_C_BEGIN

/* 1 when the board must be measured (its TPM is present and active), else 0. Also
 * sub-operation 7 of operation 1, whose result it is unchanged. */
BOOTINIT_API uint32_t BOOT_INIT_IsSupportMeasure(void);

BOOTINIT_EXTERN_C_END

#endif /* BOOTINIT_MEASURE_H */
