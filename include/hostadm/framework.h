/* SPDX-License-Identifier: MIT */
#ifndef HOSTADM_FRAMEWORK_H
#define HOSTADM_FRAMEWORK_H

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
    unsigned int length;
    char *value;
} adm_arg;
typedef struct adm_args adm_args;
typedef struct adm_error {
    int code;
    char *text;
} adm_error;

int adm_init(void);
int adm_args_geti(const char *name, unsigned int type, adm_arg **record);
int adm_args_set(const char *name, unsigned int type, unsigned int length, const void *value);
int adm_args_newh(adm_args **handle);
int adm_args_puta(adm_args *handle, const char *name, unsigned int type, unsigned int length,
                  const void *value);
int adm_args_geta(adm_args *handle, const char *name, unsigned int type, adm_arg **record);
int adm_args_reset(adm_args *handle);
int adm_args_nextr(adm_args *handle);
unsigned int adm_args_htype(adm_args *handle);
int adm_args_freeh(adm_args *handle);
int _get_returned_arg(adm_args *handle, const char *name, const char *fallback, char **value);
int adm_perf_method(const char *method, adm_args *input, adm_args **output, adm_error **error, ...);
int adm_err_setf(adm_error *where, int code, const char *format, ...);
int adm_err_cleanup(adm_error *where, int state);
int adm_err_freeh(adm_error *error);
extern const char *const system_msgs[];

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
