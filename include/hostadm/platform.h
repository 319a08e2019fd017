/* SPDX-License-Identifier: MIT */
/*
 * What the library takes from a System V host and Linux lacks or gives in another shape: the host's identity,
 * process records, file system types, the name-service switch, letter case.
 *
 * - No function changes anything on the host.
 * - Functions that can fail return -1 (or NULL) and set errno. Unless a function says otherwise, its results
 *   are written on success only: after a failure they hold what the caller put there.
 * - Texts are NUL-terminated. Nothing that is returned here is to be freed.
 * - All but sysv_nsw_getconfig may be called from several threads at once.
 */
#ifndef HOSTADM_PLATFORM_H
#define HOSTADM_PLATFORM_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* ---- Host identity ---- */

#define SYSV_SI_HOSTNAME 2     /* host name, as uname -n tells it */
#define SYSV_SI_RELEASE 3      /* operating system release: the build setting HOSTADM_RELEASE ("5.5") */
#define SYSV_SI_ARCHITECTURE 6 /* instruction set: the build setting HOSTADM_ARCHITECTURE ("i386") */
#define SYSV_SI_SRPC_DOMAIN 9  /* secure-RPC (NIS) domain, as domainname tells it */

/*
 * Copies one fact about this host into buffer and returns the number of bytes that the whole text needs, its
 * NUL included. A result greater than size means that the text was cut: buffer then holds its first size - 1
 * bytes and a NUL. With size 0 nothing is written, buffer may be NULL, and the result tells how much is
 * needed.
 *
 * Release and architecture are settings of the build, because a Linux kernel's own release says nothing about
 * the release numbers that OS services are compared with.
 *
 * Returns -1 with errno
 *   EINVAL  unknown command, or negative size;
 *   EFAULT  buffer is NULL and size is not 0;
 *   ENOENT  SYSV_SI_SRPC_DOMAIN only: the host has no domain (the kernel says nothing or "(none)").
 *           So "less than 1" is the whole test for "there is no domain".
 */
long sysv_sysinfo(int command, char *buffer, long size);

/* ---- Processes ---- */

struct sysv_psinfo {
    int pr_zomb;        /* not 0: the process is defunct (it has ended and nobody has waited for it yet) */
    int pr_pid;         /* process id */
    char pr_fname[16];  /* short name, at most 15 bytes: last component of the path that was executed; for a
                           script that was executed by its own path, the script's name and not its
                           interpreter's */
    char pr_psargs[80]; /* first 79 bytes of the command line, arguments joined by single blanks */
};

/* C++ compilers warn that a function hides the constructor of a structure of its name; here that is meant. */
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
/*
 * Reads the record of the process whose directory /proc/ID is open as process_fd (any mode; the descriptor
 * stays open and its position is not moved). Returns 0.
 *
 * A defunct process has no command line on Linux: pr_psargs is then "/" followed by pr_fname, so that a
 * search for "/NAME" still finds it. A kernel thread has an empty pr_psargs. A process that has changed its
 * name or its title is reported with the changed ones.
 *
 * Returns -1 with errno
 *   ESRCH   the process has gone;
 *   EINVAL  process_fd is open, but is not a directory /proc/ID; or info is NULL;
 *   EBADF   process_fd is not open;
 *   EACCES  the process may not be looked at.
 */
int sysv_psinfo(int process_fd, struct sysv_psinfo *info);
#pragma GCC diagnostic pop

/* ---- File systems ---- */

/*
 * Writes the type name of the file system that holds path into name, a buffer of size bytes: "ext4", "tmpfs",
 * "overlay" and so on as the mount table has it, and "nfs" for NFS of any version. Symbolic links are
 * followed. In a throwaway root (hostadm/sandbox.hpp) it is the type of the file system that is shown there.
 * Returns 0.
 *
 * Returns -1 with errno
 *   ERANGE  the name with its NUL does not fit; it is never cut;
 *   EINVAL  path or name is NULL;
 *   ENOENT, EACCES, ELOOP, ENAMETOOLONG, ENOTDIR  what is wrong with path;
 *   ENODATA the mount table of this process (/proc/self/mountinfo) cannot be read or does not show that
 *           mount.
 */
int sysv_fstype(const char *path, char *name, unsigned long size);

/* ---- Name-service switch ---- */

struct sysv_nsw_lookup {
    const char *service; /* name of the source: "files", "nis", ... */
    struct sysv_nsw_lookup *next;
};
struct sysv_nsw_config {
    struct sysv_nsw_lookup *lookups; /* the sources in the order of the line; NULL when it names none */
};

/*
 * The sources of a database ("bootparams", "hosts", ...) by /etc/nsswitch.conf. Its lines read
 *     DATABASE: SOURCE [STATUS=ACTION ...] SOURCE ...      # comment
 * and what stands in brackets is skipped. Of several lines for one database the first counts. If the file has
 * no line for it, the answer is the one source "files".
 *
 * The result belongs to the library and stands until the next call.
 *
 * Returns NULL when there is no such file or it cannot be read (errno says why), and when database is NULL or
 * empty (EINVAL).
 */
struct sysv_nsw_config *sysv_nsw_getconfig(const char *database);

/* ---- Letter case ---- */

/* Turn the ASCII letters of text into lower or upper case, in place, whatever the locale. They return text;
   NULL is returned as NULL. */
char *sysv_strlwr(char *text);
char *sysv_strupr(char *text);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
