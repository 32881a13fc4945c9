/* What the functions of the stubs return: they fail with ENOSYS. */
#ifndef IVRA_STUB_H
#define IVRA_STUB_H

#include <errno.h>
#include <stddef.h>

static inline int failure(void)
{
    errno = ENOSYS;
    return -1;
}

static inline void* no_handle(void)
{
    errno = ENOSYS;
    return NULL;
}

/* Of a call without a value that means failure. */
static inline unsigned nothing(void)
{
    errno = ENOSYS;
    return 0;
}

#endif
