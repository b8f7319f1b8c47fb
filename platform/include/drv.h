/*
 * Board driver: board type and state, slot, role, and the boot environment.
 *
 * The host build answers from the board description (/etc/bootsim/board.ini, see
 * docs/board-description.md) and keeps the boot environment in a real U-Boot environment image
 * read and written through libubootenv (configuration /etc/fw_env.config), so fw_printenv and
 * fw_setenv see the same variables. Both are read afresh on every call.
 *
 * Four entry points may be missing on a board: drv_board_get_self_logic_slotid, drv_env_set,
 * drv_env_save_block and DEV_GetRoleOfBoard. Callers link them weakly and test for presence;
 * the "minimal" build of this library (lib/drv-minimal/libdrv.so, same soname) leaves them out.
 *
 * Every function returns 0 on success. A failure forced by the board description ([fail]
 * section, key = function name, value = a non-zero code) is returned as that code, after the
 * argument checks; outputs are still written then, as a real driver may have filled them before
 * it failed, while drv_env_set and drv_env_save_block fail before storing anything.
 */
#ifndef DRV_H
#define DRV_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define DRV_API __attribute__((visibility("default")))

#define DRV_OWN_BOARD 0xFFFFFFFFu /* board id meaning "this board" */

#define DRV_ERR_PARAM 1u     /* empty pointer, zero length, other board, bad variable name */
#define DRV_ERR_NOT_FOUND 2u /* variable not set, or fact not described (not a number) */
#define DRV_ERR_TOO_LONG 3u  /* value does not fit the caller's buffer */
#define DRV_ERR_ENV 4u       /* boot environment cannot be opened or stored */
#define DRV_ERR_FLASH 5u     /* flash area damaged, unreadable or not writable */

/* Hardware type of a board; only DRV_OWN_BOARD (this board) is known.
 * [board] hard_type, default 0. */
DRV_API uint32_t drv_board_get_type(uint32_t boardId, uint32_t *type);
/* Active state of a board: 0 master (active), anything else not master. [board] active_state,
 * default 0; index is not used by the host build. */
DRV_API uint32_t drv_msc_get_state(uint32_t boardId, uint32_t index, uint32_t *state);
/* Logical slot of this board. [board] slot, default 1. */
DRV_API uint32_t drv_board_get_self_logic_slotid(uint32_t *slot);
/* Role of this board: 1 main management board, 3 line card. [board] role,
 * default 1. */
DRV_API uint32_t DEV_GetRoleOfBoard(uint32_t *role);

/* Boot environment. Variable names are non-empty and hold no '='.
 * drv_env_get copies the value of name into buf, which must hold it and its terminator
 * (DRV_ERR_TOO_LONG otherwise); unset: DRV_ERR_NOT_FOUND; no valid stored copy and no default
 * environment (/etc/u-boot-initial-env), missing configuration or image: DRV_ERR_ENV. buf is ""
 * after every failure that is not forced (bufLen > 0). flags is reserved (0).
 * drv_env_set sets and stores at once; a NULL or empty value removes the variable. Without a
 * valid stored copy it starts from the default environment, or an empty one, and its store
 * makes the image valid. drv_env_save_block stores the environment again. */
DRV_API uint32_t drv_env_get(const char *name, char *buf, uint32_t bufLen, uint32_t flags);
DRV_API uint32_t drv_env_set(const char *name, const char *value);
DRV_API uint32_t drv_env_save_block(void);

/* CRL flash areas: one for a CRL signed with the PSS scheme, one for the classic scheme, each
 * holding at most DRV_CRL_MAX_LEN bytes. The host build keeps each area as an image file of the
 * board (see docs/board-description.md). drv_*_read copies the stored CRL into buf (bufLen
 * bytes) and its length into *len; an area never written has no CRL (DRV_ERR_NOT_FOUND), an
 * erased one holds a CRL of length 0; DRV_ERR_TOO_LONG when the CRL does not fit buf.
 * drv_*_write stores len bytes (1..DRV_CRL_MAX_LEN, DRV_ERR_PARAM otherwise) in place of the
 * area's content; a failed write leaves the previous content. */
#define DRV_CRL_MAX_LEN 0x1FFFCu
DRV_API uint32_t drv_crl_read(uint8_t *buf, uint32_t bufLen, uint32_t *len);
DRV_API uint32_t drv_crl_write(const uint8_t *buf, uint32_t len);
DRV_API uint32_t drv_pss_crl_read(uint8_t *buf, uint32_t bufLen, uint32_t *len);
DRV_API uint32_t drv_pss_crl_write(const uint8_t *buf, uint32_t len);

#ifdef __cplusplus
}
#endif

#endif /* DRV_H */
