// SPDX-License-Identifier: MIT
#include "core/registry.h"
#include "tests/memory.h"
#include "tests/temp.h"

#include <errno.h>
#include <signal.h>
#include <sys/wait.h>

#include <string>
#include <vector>

namespace {

using Strings = std::vector<std::string>;

// "path|ext,ext|mime" for each codec of the registry, in its order.
Strings codecs(const img_lib_handle &handle) {
    const auto join = [](const char *list) {
        std::string text;
        for (; list && *list; list += strlen(list) + 1) text += (text.empty() ? "" : ",") + std::string{list};
        return text;
    };
    Strings all;
    for (const img_codec *codec = handle.head; codec; codec = codec->next)
        all.push_back(std::string{codec->path} + "|" + join(codec->extensions) + "|" + join(codec->mime_types));
    return all;
}

struct Result {
    img_status status;
    Strings codecs;
    std::string log;
};

Result attach(const char *path) {
    setenv("PICTRA_CFGFILE", path, 1);
    imglog_flags = 1;
    testing::internal::CaptureStderr();
    img_lib_handle *handle;
    const img_status status = img_lib_attach(&handle);
    Result result{status, codecs(*handle), testing::internal::GetCapturedStderr()};
    imglog_flags = 0;
    img_lib_detach(handle);
    return result;
}

std::string statistics(int errors, int sections, int skipped) {
    return "pictra:img_cfg_read(143): cfg_errors = " + std::to_string(errors) +
           ", n_lines = " + std::to_string(sections) + ", n_skipped = " + std::to_string(skipped) + ", status = -1\n";
}

TEST(Config, SectionsBecomeCodecsNewestFirst) {
    const auto many = [](size_t count, char c) { return std::string(count, c); };
    struct Case {
        std::string text;
        Strings codecs;
        std::string log;
    };
    for (const auto &[text, expected, log] : {
             Case{"\n  [ /a.so ] trailing\n ext = png : x\nmime\t=image/png\nmime=image/a:image/b\n\n"
                  "[/b.so\next=\n[]]\nmime=\n",
                  {"]||", "/b.so||", "/a.so|png , x|image/a,image/b"},
                  ""},
             Case{"[" + many(300, 'p') + "]\next=" + many(200, 'e') + "\nmime=" + many(40, 'm') + "\n",
                  {many(255, 'p') + "|" + many(127, 'e') + "|" + many(31, 'm')},
                  ""},
             Case{"[/a.so]\nEXT=png\n[/b.so]\n# no comments here\n# but = is a key\n",
                  {"/b.so||", "/a.so||"},
                  statistics(2, 2, 1)},
             Case{"\n \t\n", {}, statistics(0, 0, 0)},
             // A line of 1023 characters and the rest of it are two lines.
             Case{"[/a.so]\n" + many(1023, 'x') + "ext=png\n", {"/a.so|png|"}, statistics(0, 1, 1)},
         }) {
        const Result r = attach(TempFile{text}.path());
        EXPECT_EQ(r.status, log.empty() ? IMG_ST_OK : IMG_ST_CONFIG);
        EXPECT_EQ(r.codecs, expected);
        EXPECT_EQ(r.log, log);
    }
}

TEST(Config, MissingFile) {
    for (const char *path : {"/nonexistent/img.conf", ""}) {
        const Result r = attach(path);
        EXPECT_EQ(r.status, IMG_ST_CONFIG);
        EXPECT_TRUE(r.codecs.empty());
        EXPECT_EQ(r.log, "pictra:img_cfg_read(152): Error: fopen(" + std::string{path} +
                             ", \"r\") was NULL. errno=" + std::to_string(ENOENT) + "\n");
    }
}

TEST(Config, AFileThatBeginsWithAKeyIsReadForEver) {
    const TempFile file{"ext=png\n[/a.so]\n"};
    const pid_t child = fork();
    if (child == 0) {
        img_lib_handle handle{};
        img_cfg_read(&handle, file.path());
        _exit(0);
    }
    usleep(100000);
    int status;
    EXPECT_EQ(waitpid(child, &status, WNOHANG), 0);
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
}

TEST(Config, FailingAllocations) {
    const TempFile good{"[/a.so]\next=a\nmime=b\n[/b.so]\n"}, bad{"[/a.so]\nx=1\n"};
    for (const TempFile *file : {&good, &bad}) {
        setenv("PICTRA_CFGFILE", file->path(), 1);
        const size_t count = memory::for_each_failure([&](size_t n, const memory::Watch &watch) {
            img_lib_handle *handle;
            const img_status status = img_lib_attach(&handle);
            const img_status expected = file == &good ? (watch.failed() ? IMG_ST_NOMEM : IMG_ST_OK)
                                        : n == 1      ? IMG_ST_NOMEM
                                                      : IMG_ST_CONFIG;
            EXPECT_EQ(status, expected) << n;
            EXPECT_EQ(handle == nullptr, n == 1);
            img_lib_detach(handle);
            EXPECT_EQ(watch.live(), 0u);
        });
        EXPECT_EQ(count, file == &good ? 7u : 3u) << "handle; path, record and two lists; path and record";
    }
}

TEST(Log, CutsLongMessagesAndKeepsErrno) {
    imglog_flags = 1;
    testing::internal::CaptureStderr();
    errno = EDOM;
    imglog(2, "f", -7, 0, "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(errno, EDOM);
    imglog_flags = 0;
    imglog(99, "f", 1, 0, "not printed");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "pictra:f(-7): " + std::string(4095, 'x') + "\n");
    EXPECT_EQ(imglog_verbose, 8u);
    EXPECT_EQ(enable_output, 1u);
}

} // namespace
