/* SPDX-License-Identifier: MIT */
/* refuse CALL COMMAND...: runs a command in a system that refuses a system call. */
#include <errno.h>
#include <seccomp.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

/* seccomp: also by the older way to the same. */
static int refuse(scmp_filter_ctx filter, const char *name) {
    enum { set_seccomp = 22 }; /* of prctl */
    if (seccomp_rule_add(filter, SCMP_ACT_ERRNO(EPERM), seccomp_syscall_resolve_name(name), 0) != 0) return -1;
    if (strcmp(name, "seccomp") != 0) return 0;
    const struct scmp_arg_cmp is_set = {0, SCMP_CMP_EQ, set_seccomp, 0};
    return seccomp_rule_add_array(filter, SCMP_ACT_ERRNO(EPERM), SCMP_SYS(prctl), 1, &is_set);
}

int main(int count, char **arguments) {
    scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
    if (count < 3 || !filter || refuse(filter, arguments[1]) != 0 || seccomp_load(filter) != 0) {
        fprintf(stderr, "refuse: cannot refuse %s\n", count > 1 ? arguments[1] : "nothing");
        return 99;
    }
    execvp(arguments[2], arguments + 2);
    perror(arguments[2]);
    return 99;
}
