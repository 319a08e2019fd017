/* SPDX-License-Identifier: MIT */
#ifndef HOSTADM_PLATFORM_H
#define HOSTADM_PLATFORM_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define SYSV_SI_HOSTNAME 2
#define SYSV_SI_RELEASE 3
#define SYSV_SI_ARCHITECTURE 6
#define SYSV_SI_SRPC_DOMAIN 9

long sysv_sysinfo(int command, char *buffer, long size);

struct sysv_psinfo {
    int pr_zomb;
    int pr_pid;
    char pr_fname[16];
    char pr_psargs[80];
};

/* C++ compilers warn that a function hides the constructor of a structure of its name; here that is meant. */
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
int sysv_psinfo(int process_fd, struct sysv_psinfo *info);
#pragma GCC diagnostic pop

int sysv_fstype(const char *path, char *name, unsigned long size);

struct sysv_nsw_lookup {
    const char *service;
    struct sysv_nsw_lookup *next;
};
struct sysv_nsw_config {
    struct sysv_nsw_lookup *lookups;
};

struct sysv_nsw_config *sysv_nsw_getconfig(const char *database);

char *sysv_strlwr(char *text);
char *sysv_strupr(char *text);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
