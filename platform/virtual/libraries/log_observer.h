#ifndef IVRA_VIRTUAL_LOG_OBSERVER_H
#define IVRA_VIRTUAL_LOG_OBSERVER_H

#include "libraries/api.h"

namespace ivra::virtual_platform {

/// Arguments of a call of ivra_log_log(), without those that the format takes.
using log_observer = void (*)(int level, const char* file, int line, const char* function, const char* format);

/// Every call of ivra_log_log() is told to `observer` from now on, whatever its level.
void observe_log(log_observer observer);

} // namespace ivra::virtual_platform

#endif
