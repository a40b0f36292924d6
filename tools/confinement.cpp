// SPDX-License-Identifier: MIT
#include "tools/confinement.h"

#include "tools/config.h"
#include "tools/interrupt.h"
#include "tools/limits.h"
#include "tools/text.h"

#include <mutex>
#include <signal.h>
#include <sys/wait.h>

namespace tool {

namespace {

std::string late(uint32_t seconds) {
    return "it took longer than --timeout " + std::to_string(seconds) +
           " seconds allows; raise that, or reduce the picture";
}

} // namespace

bool stop_wanted() { return stop_signal(); }

Confinement parse_confinement(const std::string &text) {
    if (text == "off") return Confinement::off;
    return text == "on" ? Confinement::required : Confinement::automatic;
}

std::string worker_program() { return installation() + "/" PICTRA_WORKER; }

void tell(const confine::Trouble &trouble, const std::string &name, Confinement confinement) {
    if (!trouble) return;
    if (confinement == Confinement::required)
        throw Failure(name + ": the system does not allow its decoding to be confined (" + trouble.text() +
                          "); use --sandbox off if you trust the file",
                      IMG_ST_NOTSUP);
    static std::once_flag told;
    std::call_once(told, [&] {
        complain("warning: pictures are decoded without full confinement (" + trouble.text() +
                 "); --sandbox on refuses that, --sandbox off accepts it");
    });
}

void fail(const confine::Worker &worker, confine::Worker::End end, const std::string &name, const char *work,
          uint32_t seconds) {
    stop_if_asked();
    if (end == confine::Worker::End::unconfined) tell(worker.trouble(), name, Confinement::required);
    const int how = worker.how(), code = WIFEXITED(how) ? WEXITSTATUS(how) : 0;
    const bool killed = WIFSIGNALED(how);
    if (end == confine::Worker::End::late) throw Failure(name + ": " + late(seconds), IMG_ST_LIMIT);
    if (end == confine::Worker::End::forged)
        throw Failure(name + ": its codec reports what cannot be (" + worker.flaw() + "); report it with the file",
                      IMG_ST_DAMAGED);
    if (code == confine::exit_no_memory)
        throw Failure(name + ": memory ran out while it was " + work + "; raise --max-memory, or reduce the picture",
                      IMG_ST_NOMEM);
    if (code == confine::exit_no_task || code == 127)
        throw Failure(worker_program() + ": it does not belong to this program; install both again", IMG_ST_MODULE);
    if (killed && WTERMSIG(how) == SIGPIPE)
        raise(SIGPIPE); // who reads the picture has gone, as if this program wrote it
    if (killed && WTERMSIG(how) == SIGKILL)
        throw Failure(name +
                          ": its codec broke off, or the system ended it for lack of memory; report it with the file",
                      IMG_ST_DAMAGED);
    throw Failure(name + ": its codec crashed (" +
                      (killed ? "signal " + std::to_string(WTERMSIG(how)) : "exit " + std::to_string(code)) +
                      ") while it was " + work + ", and took nothing along; report it with the file",
                  IMG_ST_DAMAGED);
}

void fail(const confine::Report &report, const std::string &name, const confine::Task &task) {
    const img_status status = report.status ? report.status : img_status{IMG_ST_DAMAGED};
    if (report.refusal == confine::Refusal::time) throw Failure(name + ": " + late(task.limits.seconds), IMG_ST_LIMIT);
    if (report.refusal == confine::Refusal::empty) throw empty_failure(name);
    if (report.limit) throw Failure(name + ": " + explain(*report.limit), status);
    if (status == IMG_ST_NOCONV && task.format)
        throw Failure(name + ": the picture cannot become " + format_name(task.format) +
                          "; choose another with --format",
                      status);
    throw failure_of(name, status);
}

} // namespace tool
