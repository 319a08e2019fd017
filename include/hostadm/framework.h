/* SPDX-License-Identifier: MIT */
/*
 * The administration framework: the arguments of the method that this process is, running other methods, and
 * error records.
 *
 * A method is a program LIBEXEC/hostadm/methods/CLASS/NAME, LIBEXEC being found from where this library lies.
 * It runs as a process of its own, with its input on descriptor 3 and its answer on descriptor 4; a program
 * that uses this library without having been started as a method has no input arguments, its outputs are
 * refused, and what it records is said on standard error.
 *
 * Started with the one argument --describe, a method prints its description and does nothing else. One in
 * C++ gets this, and the check of its arguments and outputs, from hostadm/method.hpp; a script prints JSON
 * (its form is shown in hostadm(1)) and the framework checks for it. A program that calls this interface
 * alone, in C for one, prints the same JSON for `hostadm list`, `help` and completion, but is not checked:
 * it gets every argument as it was given, without defaults, and looks itself at what it hands to a shell.
 * It is built with
 *     cc unmount.c -o unmount $(pkg-config --cflags --libs hostadm) -Wl,-rpath,PREFIX/lib
 * (with CMake: hostadm::hostadm) and ends with status 0 when its work is done.
 *
 * What holds everywhere:
 * - Functions return 0 on success and an errno value or a code named here otherwise; an out-parameter is then
 *   as it was, unless said otherwise. ENOMEM means that memory is out.
 * - All arguments are strings (type ADM_STRING; any other type is EINVAL) of any length and any bytes but
 *   NUL. A value that is passed in is copied: as many characters as its length says, or fewer if a NUL comes
 *   before; NULL is the empty string.
 * - A name begins with a letter or "_", goes on with letters, digits, "_", "-" and ".", and has at most 64
 *   characters; any other is EINVAL where something is stored under it.
 * - Records and values handed out may be written to within their length. Nobody frees them: they belong to
 *   their handle (or to the process, for input arguments).
 * - Nothing here may be called from two threads at once.
 */
#ifndef HOSTADM_FRAMEWORK_H
#define HOSTADM_FRAMEWORK_H

/* Lets the compiler compare a format with its arguments, by their positions (0: they come as a va_list). */
#ifdef __GNUC__
#    define HOSTADM_LIKE_PRINTF(format, arguments) __attribute__((__format__(__printf__, format, arguments)))
#else
#    define HOSTADM_LIKE_PRINTF(format, arguments)
#endif

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define ADM_STRING 9         /* type code of a string argument */
#define ADM_NO_MORE_ROWS 103 /* adm_args_nextr: there is no further row */
#define ADM_CLASS 1          /* adm_perf_method option: the method's class */
#define ADM_HOST 3           /* adm_perf_method option: host to run it on */
#define ADM_HANDLE_ROWS 2u   /* adm_args_htype bit: the handle holds returned rows */
#define ADM_CLEAN 1          /* adm_err_cleanup: nothing is left half done */
#define ADM_DIRTY 2          /* adm_err_cleanup: something is left half done */

typedef struct adm_arg {
    const char *name;
    unsigned int type;
    unsigned int length; /* characters of the value, its NUL not counted */
    char *value;
} adm_arg;
typedef struct adm_args adm_args; /* an argument handle: rows of named arguments */
typedef struct adm_error {
    int code; /* 0: no error */
    char *text;
} adm_error;

/* Makes the framework ready. Nothing needs it first: the other functions do what it does when called. */
int adm_init(void);

/* Finds an input argument of the method that this process is; its value has been checked against the method's
   description, defaults filled in (but see above for programs that call this interface alone). *record stays
   valid, and what is written to its value stays written, until the process ends. ENOENT: it was not given. */
int adm_args_geti(const char *name, unsigned int type, adm_arg **record);

/* Returns an output of the method that this process is; a later value takes the place of an earlier one.
   EBADF: this process is no method. */
int adm_args_set(const char *name, unsigned int type, unsigned int length, const void *value);

/* Makes an empty handle, to be freed with adm_args_freeh. */
int adm_args_newh(adm_args **handle);

/* Puts an argument into a handle, or gives it a new value; the value record of that name is then no longer
   valid. */
int adm_args_puta(adm_args *handle, const char *name, unsigned int type, unsigned int length,
                  const void *value);

/* Finds an argument of the current row, or else an output, which is seen from every row. *record is valid
   until the handle is freed. ENOENT: there is none of that name. */
int adm_args_geta(adm_args *handle, const char *name, unsigned int type, adm_arg **record);

/* Makes the first row the current one. */
int adm_args_reset(adm_args *handle);

/* Makes the next row the current one. ADM_NO_MORE_ROWS: there is none, and the last stays the current one; a
   handle with outputs alone counts as one row. */
int adm_args_nextr(adm_args *handle);

/* ADM_HANDLE_ROWS when the handle holds rows or outputs that a method returned; 0 for any other, and for
   NULL. */
unsigned int adm_args_htype(adm_args *handle);

/* Frees a handle with all that was handed out of it; NULL is allowed. Returns 0. */
int adm_args_freeh(adm_args *handle);

/* Stores the value of a field of the current row (or an output) in *value. Where there is none it stores a
   copy of the fallback that lives as long as the handle (without a handle: until the next such call; NULL
   stays NULL) and returns ENOENT, or EINVAL without a handle or a name. */
int _get_returned_arg(adm_args *handle, const char *name, const char *fallback, char **value);

/*
 * Runs a method, as a child process or on another host, and waits for it.
 *
 * method: NAME, or CLASS/NAME without the option ADM_CLASS. input: its arguments; NULL for none; kept.
 * The options are pairs (int option, char *value), ended by 0:
 * - ADM_CLASS: the method's class. NULL, empty or left out: NAME must then be unique among all classes.
 * - ADM_HOST: the host to run it on, over ssh, which must log in there without a password. NULL, empty, left
 *   out or a name or address of this host: here.
 *
 * The child has /dev/null as standard input, what it prints goes to standard error, no signal is blocked or
 * ignored in it, and of this process's descriptors it has standard error only. A SIGCHLD that is ignored here
 * is not while the child is waited for. Of all children only this one is waited for, not what it leaves
 * running.
 *
 * *output becomes a handle with what the method returned, after a failure too: whatever it returned before it
 * failed. *error becomes a record with the code and text of the failure, or with code 0 and an empty text.
 * Both are the caller's, to be freed with adm_args_freeh and adm_err_freeh. Either place may be NULL; without
 * memory NULL is stored.
 *
 * 0: the method did its work. Otherwise the code in *error:
 * - the code of the method's last error record, with its text (behind the reason of 101, if both hold);
 * - 101: there was nothing to read in such a record: it could not be started, was killed by a signal, ended
 *   before its work was done, answered something that cannot be understood, or lacks an output that its
 *   description requires;
 * - 102: nothing was done, since the method is unknown, or an argument or the host's name was refused; the
 *   text says what was wrong with which argument and what is accepted;
 * - 130 to 137: the other host was not reached, or could not run it, and nothing was done; 138 and 139: its
 *   answer did not come, or broke off. docs/error-codes.md tells them apart.
 */
int adm_perf_method(const char *method, adm_args *input, adm_args **output, adm_error **error, ...);

/*
 * Records an error: its text is the printf format with its arguments. where NULL: the answer of the method
 * that this process is. Records are kept in order; code 0 withdraws those recorded before, which are then not
 * reported. Outside a method "TEXT (error CODE)" goes to standard error (nothing for code 0). where not NULL:
 * that record, whose text must be NULL or from malloc; the earlier text is freed. errno is left as it was.
 * EINVAL: format is NULL.
 */
int adm_err_setf(adm_error *where, int code, const char *format, ...) HOSTADM_LIKE_PRINTF(3, 4);

/* Marks the answer of the running method: ADM_DIRTY, something is left half done; ADM_CLEAN, nothing is.
   Errors already recorded stay recorded. Outside a method ADM_DIRTY is said on standard error. where not
   NULL: nothing, since a record has no mark. EINVAL: another state. */
int adm_err_cleanup(adm_error *where, int state);

/* Frees a record made by adm_perf_method, with its text; NULL is allowed. Returns 0. */
int adm_err_freeh(adm_error *error);

/* The message identifiers of the error codes 0 to 97; their texts are found with dgettext in the domain
   "system_msgs", which this library binds to its own catalogues. Every "%s" is a string: the method's name,
   then what the failure is about. Only the text of code 0 takes none. */
extern const char *const system_msgs[];

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
