// SPDX-License-Identifier: MIT
#include "codec/stream_file.h"
#include "tests/memory.h"
#include "tests/temp.h"
#include "tests/transcript.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <thread>

namespace {

void goes(io_handle *h, const std::string &transcript) {
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(play(h, transcript), transcript);
}

TEST(FdBackend, SeekableFilesEndAtTheirSize) {
    const TempFile file{"0123456789"};
    const int fd = open(file.path(), O_RDONLY);
    lseek(fd, 2, SEEK_SET);
    io_handle *h = io_open(IO_FD, IO_READ, fd);
    EXPECT_EQ(h->self->buffer_size, 2048u);
    goes(h, "c=0,0,0,8 r3=234 s2=0 b8=-1"); // not before the stream's start
    h->self->buffer_size = 2;               // from here directly, with lseek
    goes(h, "r4=789 u456789=0 r2=45 b3=0 r9=3456789");
    io_close(h);

    h = io_open(IO_FD, IO_READ, fd);
    goes(h, "c=0,0,0,0 r1="); // at the end
    io_close(h);
    EXPECT_EQ(close(fd), 0) << "still the caller's";
}

TEST(FdBackend, FilesOfFourGigabytes) {
    const TempFile file;
    const int fd = open(file.path(), O_RDWR);
    ASSERT_EQ(ftruncate(fd, 0x100000000), 0);
    EXPECT_EQ(io_open(IO_FD, IO_READ, fd), nullptr);
    lseek(fd, 2, SEEK_SET);
    io_handle *h = io_open(IO_FD, IO_READ, fd);
    goes(h, "c=0,0,0,-2 s4294967280=0 c=2048,0,-16,14");
    io_close(h);
    close(fd);
}

TEST(FdBackend, PipesHaveNoEndAndOnlyGoForward) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    ASSERT_EQ(write(fds[1], "abcdef", 6), 6);
    io_handle *h = io_open(IO_FD, IO_READ, fds[0]);
    EXPECT_FALSE(h->self->backend_skip || h->self->backend_unread || h->self->backend_unskip);
    goes(h, "c=0,0,0,-1 r2=ab uab=0 r6=abcdef");
    io_close(h);
    close(fds[0]);
    close(fds[1]);
}

TEST(FdBackend, Writes) {
    const TempFile file;
    const int fd = open(file.path(), O_WRONLY);
    io_handle *h = io_open(IO_FD, IO_WRITE, fd);
    goes(h, "whello=5");
    EXPECT_EQ(file.content(), "");
    EXPECT_EQ(h->seek(h->self, -4, SEEK_CUR), 1);
    goes(h, "wE=1");
    io_close(h);
    EXPECT_EQ(file.content(), "hEllo");
    close(fd);

    h = io_open(IO_FD, IO_WRITE, fd); // closed: every write fails
    goes(h, "wx=1");
    EXPECT_EQ(io_ostream_flush(h->self), -1);
    EXPECT_EQ(errno, EFBIG);
    goes(h, "k0=-1");
    io_close(h);
}

// Signals that interrupt whatever waits in this thread.
class Interrupts {
public:
    Interrupts() {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, &before_);
        set(2000);
    }
    ~Interrupts() {
        set(0);
        sigaction(SIGALRM, &before_, nullptr);
    }

private:
    static void set(suseconds_t microseconds) {
        const itimerval timer{{0, microseconds}, {0, microseconds}};
        setitimer(ITIMER_REAL, &timer, nullptr);
    }
    struct sigaction before_;
};

// The other end of a pipe, in a thread that no signal interrupts and that starts late.
template <typename Body> std::thread other_end(Body body) {
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread thread{[body] {
        usleep(30000);
        body();
    }};
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

TEST(FdBackend, SignalsNeitherEndAReadNorShortenAWrite) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    io_handle *h = io_open(IO_FD, IO_READ, fds[0]);
    std::thread writer = other_end([&] { EXPECT_EQ(write(fds[1], "abc", 3), 3); });
    {
        const Interrupts interrupts;
        goes(h, "r3=abc");
    }
    writer.join();
    std::thread closer = other_end([&] { close(fds[1]); });
    {
        const Interrupts interrupts;
        goes(h, "g="); // the end, and no error although a read was interrupted on the way
    }
    closer.join();
    io_close(h);
    close(fds[0]);

    const TempFile fifo;
    ASSERT_EQ(unlink(fifo.path()) | mkfifo(fifo.path(), 0600), 0);
    std::thread opener = other_end([&] { close(open(fifo.path(), O_WRONLY)); });
    {
        const Interrupts interrupts;
        EXPECT_TRUE(img::FileStream(fifo.path(), IO_READ).opened());
    }
    opener.join();

    ASSERT_EQ(pipe(fds), 0);
    h = io_open(IO_FD, IO_WRITE, fds[1]);
    const std::string sent(300000, 's');
    std::string received;
    std::thread reader = other_end([&] {
        char bytes[5000];
        while (received.size() < sent.size()) {
            const ssize_t n = read(fds[0], bytes, sizeof bytes);
            if (n <= 0) break;
            received.append(bytes, static_cast<size_t>(n));
            usleep(500);
        }
    });
    {
        const Interrupts interrupts;
        EXPECT_EQ(h->write(h->self, sent.data(), 300000), 300000u);
    }
    io_close(h);
    close(fds[1]);
    reader.join();
    EXPECT_EQ(received, sent);
    close(fds[0]);
}

TEST(MemBackend, DeliversTheAreaInPlace) {
    char bytes[] = "0123456789";
    io_handle *h = io_open(IO_MEM, IO_READ, uint32_t{10}, bytes);
    goes(h, "n99=0,99 l0=0"); // success, and no change
    goes(h, "r4=0123 uxx=0 s9=-1");
    io_ctl_buf lent;
    EXPECT_EQ(h->ctl(h->self, IO_CTL_GETBUF, &lent), 0);
    EXPECT_EQ(lent.data, reinterpret_cast<uint8_t *>(bytes) + 2);
    goes(h, "b10=0 r16=0123456789 r16= g=");
    io_close(h);
    EXPECT_STREQ(bytes, "0123456789");

    EXPECT_EQ(io_open(IO_MEM, IO_WRITE, uint32_t{10}, bytes), nullptr);
    EXPECT_EQ(errno, ENOTSUP);
}

TEST(MemBackend, ChainsDeliverTheirFirstBlock) {
    io_mem_block second{nullptr, 2, {'x', 'y'}}, first{&second, 4, {'a', 'b', 'c', 'd'}};
    io_handle *h = io_open(IO_MEM, IO_READ, uint32_t{0}, &first);
    goes(h, "r9=abcd r9=");
    io_stream &s = *h->self; // the chain's own operation goes on
    EXPECT_EQ(s.backend_read(s.handle, nullptr, 0), 2u);
    EXPECT_EQ(s.limit, 2u);
    s.limit = 0;
    EXPECT_EQ(s.backend_read(s.handle, nullptr, 0), 0u);
    EXPECT_EQ(s.backend_read(s.handle, nullptr, 0), 0u);
    s.position = 0;
    goes(h, "r9=xy");
    io_close(h);

    h = io_open(IO_MEM, IO_READ, uint32_t{0}, nullptr);
    goes(h, "r9="); // an empty chain
    io_close(h);
    const size_t count = memory::for_each_failure([&](size_t, const memory::Watch &watch) {
        io_handle *opened = io_open(IO_MEM, IO_READ, uint32_t{0}, &first);
        EXPECT_EQ(opened == nullptr, watch.failed());
        io_close(opened);
        EXPECT_EQ(watch.live(), 0u);
    });
    EXPECT_EQ(count, 2u);
}

} // namespace
