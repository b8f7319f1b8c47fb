/*
 * Network download: the FTP client that fetches one file from a main management board's server
 * (one control connection, passive mode, binary type, one RETR, QUIT) and operation 2, which
 * chooses the servers, the port and the account. Results are 0 on success; the client returns
 * 1 for a local failure or an unusable reply, or the FTP reply code the server refused a step
 * with (RETR, completion), and 0x10000002 for an empty argument.
 */
#ifndef BOOTINIT_DOWNLOAD_H
#define BOOTINIT_DOWNLOAD_H

#include <sys/socket.h>

#include "bootinit/base.h"

BOOTINIT_EXTERN_C_BEGIN

#define BOOT_INIT_FTP_PATH_LEN 384u
#define BOOT_INIT_FTP_USER_LEN 128u
#define BOOT_INIT_FTP_PASSWORD_LEN 256u
#define BOOT_INIT_FTP_DIR_LEN 256u
#define BOOT_INIT_FTP_SERVER_NUM 2u

/* Control and data descriptors of one FTP session; -1 when closed. */
typedef struct {
  int32_t ctrlFd;
  int32_t dataFd;
} BOOT_INIT_FTP_CONN_S;

/* A server address (with its port) and the client's own address to bind to (port 0). */
typedef struct {
  struct sockaddr_storage server;
  struct sockaddr_storage client;
} BOOT_INIT_FTP_SOCK_ADDR_S;

/* The account of a download. Wiped with zeros as soon as the download is over. */
typedef struct {
  char userName[BOOT_INIT_FTP_USER_LEN];
  char password[BOOT_INIT_FTP_PASSWORD_LEN];
  char directory[BOOT_INIT_FTP_DIR_LEN];
} BOOT_INIT_FTP_ACCOUNT_S;

/* One file to fetch: where it goes, and its path on the server. */
typedef struct {
  char localPath[BOOT_INIT_FTP_PATH_LEN];
  char remotePath[BOOT_INIT_FTP_PATH_LEN];
} BOOT_INIT_FTP_FILE_INFO_S;

/* The servers to try, in order, and the client address. */
typedef struct {
  uint32_t sockAddrNum; /* usable entries of server, 0 to 2 */
  uint32_t reserved;    /* kept zero */
  struct sockaddr_storage server[BOOT_INIT_FTP_SERVER_NUM];
  struct sockaddr_storage client;
} BOOT_INIT_FTP_SERVER_ADDR_S;

/* ---- FTP client ---- */

/* The whole download of fileRequest->remotePath into fileRequest->localPath. */
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_Get(const BOOT_INIT_FTP_FILE_INFO_S *fileRequest,
                                              const BOOT_INIT_FTP_SOCK_ADDR_S *addresses,
                                              const BOOT_INIT_FTP_ACCOUNT_S *account);
/* Control connection (with retries), login and binary mode; *ctrlFd is the open connection. */
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_Start(const BOOT_INIT_FTP_SOCK_ADDR_S *addresses,
                                                const BOOT_INIT_FTP_ACCOUNT_S *account,
                                                int32_t *ctrlFd);
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_EstablishFtpCtrlConnect(
    const BOOT_INIT_FTP_SOCK_ADDR_S *addresses, int32_t *ctrlFd);
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_SetFtpCtrlSockOpt(int32_t fd);
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_Login(int32_t ctrlFd,
                                                const BOOT_INIT_FTP_ACCOUNT_S *account);
/* Sends one login command, wipes its text and returns the reply code (or 1). */
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_LoginFtpAndGetReply(int32_t ctrlFd, const char *command,
                                                              const char *argument,
                                                              char *replyBuffer,
                                                              uint32_t replyBufferLength);
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_OpenBinMode(int32_t ctrlFd);
/* Data connection and RETR, up to three attempts. */
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_Prepare2Get(BOOT_INIT_FTP_CONN_S *connection,
                                                      const char *remotePath);
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_EstablishFtpDataConnect(BOOT_INIT_FTP_CONN_S *connection);
/* PASV, and the data connection's addresses: the control connection's peer with the announced
 * port, and its local address with port 0. */
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_GetFtpDataConnIPAddr(
    const BOOT_INIT_FTP_CONN_S *connection, BOOT_INIT_FTP_SOCK_ADDR_S *dataAddresses);
/* The port of a "227" reply: 0 and *port, or 1. */
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_ParsePasvCmdReply(const char *replyText, uint16_t *port);
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_SetFtpDataSockOpt(int32_t fd);
/* Creates the local file and copies the data stream into it. */
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_GenerateLocalFile4Get(BOOT_INIT_FTP_CONN_S *connection,
                                                                const char *localPath);
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_TransFile4Get(int32_t dataFd, int32_t localFd);
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_GoodBye(int32_t ctrlFd);
/* Sends "command argument" (argument may be NULL) and returns the reply code, or 1. */
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_SendCmdAndGetReply(int32_t ctrlFd, const char *command,
                                                             const char *argument,
                                                             char *replyBuffer,
                                                             uint32_t replyBufferLength);
/* Reads one reply line; its 3-digit code, or 1. replyBuffer may be NULL. */
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_GetReplyEnhanced(int32_t ctrlFd, uint32_t isQuit,
                                                           char *replyBuffer,
                                                           uint32_t replyBufferLength);
/* 0 and the code of a reply line, or 1. */
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_GetReplyCode(const char *line, uint32_t *code);
/* 1 for the replies that abort a retrieval at once (421, 450, 451, 452), else 0. */
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_IsTransientFatal(uint32_t code);
/* Bytes written or read, or 0xFFFFFFFF for a negative descriptor or an empty buffer. */
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_SendCmd(int32_t fd, const char *text, uint32_t length);
BOOTINIT_API uint32_t BOOT_INIT_FTPCLIENT_Read(int32_t fd, char *buffer, uint32_t length);
BOOTINIT_API void BOOT_INIT_FTPCLIENT_InitFtpConn(BOOT_INIT_FTP_CONN_S *connection);
BOOTINIT_API void BOOT_INIT_FTPCLIENT_ReleaseFtpDataConn(BOOT_INIT_FTP_CONN_S *connection);
BOOTINIT_API void BOOT_INIT_FTPCLIENT_ReleaseFtpCtrlConn(BOOT_INIT_FTP_CONN_S *connection);
BOOTINIT_API void BOOT_INIT_FTPCLIENT_ReleaseFtpConn(BOOT_INIT_FTP_CONN_S *connection);

/* ---- operation 2: download a start file from the main board ---- */

/* "<remote path> <local path>"; 1 for a wrong count. */
BOOTINIT_API uint32_t BOOT_InitOperDownloadFile(int32_t argc, char **argv);
/* 0; 1 when no server or account could be chosen; else the last download's code. */
BOOTINIT_API uint32_t BOOT_InitOperDownloadFileOper(const char *remotePath, const char *localPath);
BOOTINIT_API uint32_t BOOT_INIT_GetFtpFileInfo(const char *remotePath, const char *localPath,
                                               BOOT_INIT_FTP_FILE_INFO_S *fileRequest);
/* The servers to try (none on the master main board). */
BOOTINIT_API uint32_t BOOT_INIT_GetFtpSockConnAddr(BOOT_INIT_FTP_SERVER_ADDR_S *serverAddresses);
BOOTINIT_API uint32_t BOOT_INIT_GetFtpSockStack(BOOT_INIT_FTP_SERVER_ADDR_S *serverAddresses);
BOOTINIT_API uint32_t BOOT_INIT_GetFtpSockNotStack(BOOT_INIT_FTP_SERVER_ADDR_S *serverAddresses);
/* The port of "/etc/conf/ftpserver.conf", or 21. */
BOOTINIT_API void BOOT_INIT_GetFtpServerPort(uint16_t *port);
/* The account whose directory remotePath lies in. */
BOOTINIT_API uint32_t BOOT_INIT_GetFtpAccount(BOOT_INIT_FTP_ACCOUNT_S *account,
                                              const char *remotePath);
/* 1 when path begins with directory, else 0. */
BOOTINIT_API uint32_t BOOT_INIT_IsDirMatchByFile(const char *path, const char *directory);

BOOTINIT_EXTERN_C_END

#endif /* BOOTINIT_DOWNLOAD_H */
