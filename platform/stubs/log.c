#include <ivra/log.h>

/* A handler may be set, and hears nothing. */
void ivra_log_set_handler(ivra_log_handler) {}
void ivra_log_log(int, const char *, int, const char *, const char *, ...) {}
