// SPDX-License-Identifier: MIT
//
// The diagnostic log: every message goes to the system logger and, on request, to standard error.
#include "core/log.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <syslog.h>

uint32_t imglog_flags = 0;
uint32_t imglog_verbose = 8;
const uint32_t enable_output = 1;

namespace {

constexpr uint32_t print_to_stderr = 0x1;

// The host's priorities for severities 0 (shutdown) to 7 (second level of debugging).
constexpr int priorities[] = {LOG_EMERG, LOG_CRIT, LOG_ERR, LOG_WARNING, LOG_NOTICE, LOG_INFO, LOG_DEBUG, LOG_DEBUG};

} // namespace

void imglog(uint32_t severity, const char *function, int32_t line, uint64_t, const char *format, ...) {
    const int saved_errno = errno;
    char message[4096];
    va_list args;
    va_start(args, format);
    vsnprintf(message, sizeof message, format, args);
    va_end(args);
    syslog(priorities[severity < 8 ? severity : 7], "pictra:%s(%d): %s", function, line, message);
    if (imglog_flags & print_to_stderr) fprintf(stderr, "pictra:%s(%d): %s\n", function, line, message);
    errno = saved_errno;
}
