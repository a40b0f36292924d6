// SPDX-License-Identifier: MIT
#include "tests/fake_backend.h"
#include "tests/memory.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <random>
#include <tuple>

namespace {

class Stream {
public:
    explicit Stream(FakeBackend &backend, uint32_t mode = IO_READ) : h(io_open(FakeBackend::make, mode, &backend)) {}
    ~Stream() { io_close(h); }
    std::string read(uint32_t n) const {
        std::string text(n, '?');
        text.resize(h->read(h->self, text.data(), n));
        return text;
    }
    uint32_t write(const std::string &text) const {
        return h->write(h->self, text.data(), static_cast<uint32_t>(text.size()));
    }
    int unread(const std::string &text) const {
        return h->unread(h->self, text.data(), static_cast<uint32_t>(text.size()));
    }
    int skip(uint32_t n) const { return h->skip(h->self, n); }
    int unskip(uint32_t n) const { return h->unskip(h->self, n); }
    int ctl(uint32_t code, void *arg) const { return h->ctl(h->self, code, arg); }
    std::string get() const {
        io_ctl_buf lent{nullptr, 77};
        if (ctl(IO_CTL_GETBUF, &lent)) return "failed";
        return {reinterpret_cast<char *>(lent.data), lent.length};
    }
    int resize(uint32_t size) const { return ctl(IO_CTL_SETBUF, &size); }
    io_stream &operator*() const { return *h->self; }

    io_handle *h;
};

// position, count, transferred, limit
using Counters = std::tuple<uint32_t, uint32_t, uint32_t, uint32_t>;
Counters counters(const Stream &s) { return {(*s).position, (*s).count, (*s).transferred, (*s).limit}; }
constexpr uint32_t none = UINT32_MAX;

const std::string text = "abcdefghijklmnopqrstuvwxyz";

TEST(StreamOpen, RefusesBadArguments) {
    FakeBackend b;
    for (const uint32_t mode : {0u, 3u}) {
        errno = 0;
        EXPECT_EQ(io_open(FakeBackend::make, mode, &b), nullptr);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(io_open(nullptr, IO_READ), nullptr);
    EXPECT_EQ(io_open([](io_stream *, va_list *) { return 1; }, IO_READ), nullptr);
    io_close(nullptr);
    const memory::Watch watch(1);
    EXPECT_EQ(io_open(FakeBackend::make, IO_READ, &b), nullptr);
}

TEST(StreamOpen, OperationsOfTheOtherModeFail) {
    FakeBackend b{.data = text};
    Stream r{b}, w{b, IO_WRITE};
    EXPECT_EQ(w.h->unskip, nullptr);
    const auto bad = [](auto result, auto expected) {
        EXPECT_EQ(result, decltype(result)(expected));
        EXPECT_EQ(errno, EBADF);
        errno = 0;
    };
    errno = 0;
    bad(io_stream_read(&*w, nullptr, 1), 0);
    bad(io_stream_skip(&*w, 1), -1);
    bad(io_stream_unread(&*w, "", 0), -1);
    bad(io_ostream_write(&*r, "", 1), 0);
    bad(io_ostream_seek(&*r, 0, 0), -1);
    bad(io_ostream_read(&*r, nullptr, 1), 0);
    EXPECT_EQ(b.log, "");
}

TEST(StreamRead, BuffersSmallRequestsAndPassesLargeOnes) {
    FakeBackend b{.data = text};
    Stream s{b};
    EXPECT_EQ(s.read(0), "");
    EXPECT_EQ(s.read(3), "abc");
    EXPECT_EQ(counters(s), Counters(3, 5, 8, none - 8));
    EXPECT_EQ(s.read(7), "defghij") << "the buffer's rest and one refill";
    EXPECT_EQ(counters(s), Counters(2, 6, 16, none - 16));
    EXPECT_EQ(s.read(15), "klmnopqrstuvwxy") << "as large as the buffer: directly";
    EXPECT_EQ(b.take_log(), "r8=8 r8=8 r9=9");
    b.most = 1;
    EXPECT_EQ(s.read(5), "z") << "a short read is not tried again";
    EXPECT_EQ(s.read(5), "");
    EXPECT_EQ(b.take_log(), "r8=1 r8=0");
}

TEST(StreamRead, StopsAtTheLimit) {
    FakeBackend b{.data = text};
    Stream s{b};
    EXPECT_EQ(s.ctl(IO_CTL_SETLIMIT, reinterpret_cast<void *>(uintptr_t{0x100000005})), 0) << "32 bits of it";
    EXPECT_EQ(s.ctl(IO_CTL_SETLIMIT, nullptr), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(s.read(3), "abc");
    EXPECT_EQ(s.skip(3), -1);
    EXPECT_EQ(counters(s), Counters(3, 2, 5, 0));
    EXPECT_EQ(s.read(20), "de");
    EXPECT_EQ(s.read(20), "");
    EXPECT_EQ(s.read(2), "");
    EXPECT_EQ(b.take_log(), "r5=5");
}

TEST(StreamUnread, RewindsTheBufferOrTheBackend) {
    FakeBackend b{.data = text, .unreads = true};
    Stream s{b};
    s.read(3);
    EXPECT_EQ(s.unread("XX"), 0);
    EXPECT_EQ(s.read(3), "bcd") << "the buffer's own bytes, not those handed back";
    EXPECT_EQ(s.read(9), "efghijklm");
    EXPECT_EQ(b.take_log(), "r8=8 r8=8");
    EXPECT_EQ(s.unread("efghijklm"), 0);
    EXPECT_EQ(b.take_log(), "u3=1 u9=1");
    EXPECT_EQ(counters(s), Counters(0, 0, 4, none - 4));
    EXPECT_EQ(s.unread("12345"), -1) << "more than was read";
    EXPECT_EQ(s.read(4), "efgh");
}

TEST(StreamUnread, PushesBackWhatTheBackendCannotTake) {
    FakeBackend b{.data = text};
    Stream s{b};
    EXPECT_EQ(s.read(10), "abcdefghij");
    s.read(2);
    EXPECT_EQ(s.unread("ghijkl"), 0);
    EXPECT_EQ((*s).pushback_capacity, 6u);
    EXPECT_EQ(counters(s), Counters(0, 8, 18, none - 18)) << "what was consumed comes again";
    EXPECT_EQ(s.read(2), "gh");
    EXPECT_EQ(s.read(9), "ijklklmno");
    EXPECT_EQ(s.unread("0123456789"), 0);
    EXPECT_EQ(s.unread("AB"), 0) << "behind those before";
    EXPECT_EQ(s.skip(9), 0) << "the buffer's 8 are counted, one pushed back is dropped";
    EXPECT_EQ(s.read(30).substr(0, 15), "123456789ABklmn");

    const memory::Watch watch(1);
    EXPECT_EQ(s.unread("0123456789ABCDEF"), -1);
}

TEST(StreamSkip, UsesTheBackendAndForgetsTheBuffer) {
    FakeBackend b{.data = text, .skips = true, .unreads = true, .unskips = true};
    Stream s{b};
    EXPECT_EQ(s.skip(3), 0);
    EXPECT_EQ(counters(s), Counters(8, 0, 3, none - 3));
    EXPECT_EQ(s.unread("bc"), 0) << "no buffer yet: back to the backend";
    EXPECT_EQ(s.read(2), "bc");
    EXPECT_EQ(s.unskip(1), 0);
    EXPECT_EQ(s.read(1), "c");
    EXPECT_EQ(b.take_log(), "s3=1 u2=1 r8=8");
    EXPECT_EQ(s.skip(10), 0);
    EXPECT_EQ(s.read(9), "nopqrstuv");
    EXPECT_EQ(s.unskip(17), 0);
    EXPECT_EQ(s.skip(30), -1);
    EXPECT_EQ(s.unskip(30), -1);
    EXPECT_EQ(b.take_log(), "s4=1 r9=9 b17=1 s30=0");
    EXPECT_EQ(s.read(9), "fghijklmn");
}

TEST(StreamSkip, ReadsThroughABackendThatCannot) {
    const auto after = [](uint32_t skip, uint32_t most, int expected) {
        FakeBackend b{.data = text, .most = most};
        Stream s{b};
        EXPECT_EQ(s.skip(skip), expected) << skip;
        const std::string log = b.take_log();
        return log + " " + s.read(3);
    };
    EXPECT_EQ(after(8, 8, 0), "r8=8 abc") << "a whole chunk counts as skipped but stays in the buffer";
    EXPECT_EQ(after(12, 8, 0), "r8=8 efg") << "what is left is taken from the chunk that was read";
    EXPECT_EQ(after(3, 8, -1), "r8=8 r8=8 r8=8 r8=2 r8=0 yz") << "a chunk beyond the rest wraps and reads on";
    EXPECT_EQ(after(40, 8, -1), "r8=8 r8=8 r8=8 r8=2 r8=0 yz");
    FakeBackend b{.data = text, .buffer_size = 0};
    EXPECT_EQ(Stream{b}.skip(1), -1) << "unbuffered";
}

TEST(StreamCtl, BackendIsAskedFirstAndUnknownCodesFail) {
    FakeBackend b{.data = text};
    Stream s{b};
    (*s).backend_ctl = [](intptr_t, uint32_t code, void *) { return code == 9 ? 0 : -1; };
    EXPECT_EQ(s.ctl(9, nullptr), 0);
    EXPECT_EQ(s.ctl(4, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(StreamCtl, LendsTheBuffer) {
    FakeBackend b{.data = text};
    Stream s{b};
    EXPECT_EQ(s.get(), "failed") << "no buffer yet, and none is made";
    EXPECT_EQ(b.take_log(), "r8=0");
    s.read(3);
    EXPECT_EQ(s.get(), "defgh");
    EXPECT_EQ(s.get(), "ijklmnop");
    EXPECT_EQ(counters(s), Counters(8, 0, 16, none - 16));
    EXPECT_EQ(s.unread("nop"), 0);
    for (const char *next : {"nop", "qrstuvwx", "yz", ""}) EXPECT_EQ(s.get(), next);
}

TEST(StreamCtl, ResizesTheBuffer) {
    FakeBackend b{.data = text};
    Stream s{b};
    uint32_t size = 8;
    EXPECT_EQ(s.ctl(IO_CTL_SETBUF, &size), 0);
    EXPECT_EQ(size, 8u);
    s.read(3);
    size = 20;
    EXPECT_EQ(s.ctl(IO_CTL_SETBUF, &size), 0);
    EXPECT_EQ(size, 8u) << "the old one";
    EXPECT_EQ(s.resize(7), -1) << "five bytes are unread behind three";
    EXPECT_EQ(s.read(6), "defghi");
    EXPECT_EQ(s.read(2), "jk");
    EXPECT_EQ(b.take_log(), "r8=8 r20=18");
    EXPECT_EQ(s.resize(2), -1) << "flushed first, which reads, and finds less than was consumed";
    EXPECT_EQ(errno, EFBIG);

    FakeBackend longer{.data = text + text};
    Stream l{longer};
    l.read(7);
    EXPECT_EQ(l.resize(4), 0);
    EXPECT_EQ(counters(l), Counters(0, 4, 15, none - 15)) << "read over what was consumed, and cut";

    FakeBackend sink;
    Stream w{sink, IO_WRITE};
    w.write("abc");
    EXPECT_EQ(w.resize(4), 0);
    EXPECT_EQ(w.write("d"), 1u);
    EXPECT_EQ(sink.take_log(), "") << "fits what is left";
    EXPECT_EQ(w.resize(0), 0);
    EXPECT_EQ(sink.data, "abcd");
    EXPECT_EQ(w.write("e"), 1u);
    EXPECT_EQ(sink.take_log(), "w4=4 w1=1");
}

TEST(StreamWrite, BuffersFlushesAndSeeks) {
    FakeBackend b;
    {
        Stream s{b, IO_WRITE};
        EXPECT_EQ(s.write("abc"), 3u);
        EXPECT_EQ(s.write("defghij"), 7u);
        EXPECT_EQ(counters(s), Counters(2, 6, 8, none - 8));
        EXPECT_EQ(s.write("0123456789ABCDEF"), 16u);
        EXPECT_EQ(b.take_log(), "w8=8 w8=8 w10=10");
        s.write("x");
        EXPECT_EQ(s.h->seek(s.h->self, -4, SEEK_END), 0x123456789);
        char data[] = "rb";
        EXPECT_EQ(s.h->read_back(s.h->self, data, 2), 2u) << "the write operation";
        s.write("yz");
        EXPECT_EQ(b.take_log(), "w1=1 k2=4294967292 w2=2");
        EXPECT_EQ((*s).limit, none - 27) << "which the last two did not touch";
    }
    EXPECT_EQ(b.log, "w2=2 x0=0");
    EXPECT_EQ(b.data, "abcdefghij0123456789ABCDEFxrbyz");
}

TEST(StreamWrite, ShortWritesAndLimits) {
    FakeBackend b{.most = 3};
    Stream s{b, IO_WRITE};
    s.ctl(IO_CTL_SETLIMIT, reinterpret_cast<void *>(uintptr_t{7}));
    s.write("abcdefgh");
    EXPECT_EQ(b.take_log(), "w7=3") << "as large as the buffer: directly, up to the limit";
    EXPECT_EQ(s.write("ijklm"), 5u);
    errno = 0;
    EXPECT_EQ(io_ostream_flush(&*s), -1);
    EXPECT_EQ(errno, EFBIG);
    EXPECT_EQ(counters(s), Counters(2, 6, 6, 1)) << "the rest waits";
    EXPECT_EQ(s.write("0123456789"), 6u);
    EXPECT_EQ(s.h->seek(s.h->self, 0, 0), -1);
    EXPECT_EQ(b.take_log(), "w4=3 w1=1 w0=0");
    EXPECT_EQ(b.data, "abcijkl");
}

TEST(StreamMemory, WithoutABufferEverythingGoesDirectly) {
    FakeBackend in{.data = text}, out;
    Stream r{in}, w{out, IO_WRITE};
    const memory::Watch watch(1);
    EXPECT_EQ(r.read(3), "abc");
    EXPECT_EQ(w.write("abc"), 3u); // the second buffer is had
    EXPECT_EQ(in.take_log(), "r3=3");
}

// Whatever is called in whatever order, the counters stay inside the buffer; the sanitizers watch the rest.
TEST(StreamMemory, AnyOrderOfOperationsStaysInTheBuffer) {
    std::mt19937 random{1};
    const auto pick = [&](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    for (int round = 0; round < 3000; round++) {
        FakeBackend b{.data = std::string(300, 'x'),
                      .most = 1 + pick(40),
                      .buffer_size = pick(20),
                      .skips = pick(2) != 0,
                      .unreads = pick(2) != 0,
                      .unskips = pick(2) != 0};
        Stream s{b, pick(4) ? IO_READ : IO_WRITE};
        const io_stream &r = *s;
        char bytes[64] = {};
        for (int i = 0; i < 30; i++) {
            const uint32_t n = pick(2) ? pick(10) : pick(60);
            uint32_t size = n;
            io_ctl_buf lent;
            switch (pick(10)) {
            case 0:
                io_stream_read(&*s, bytes, n);
                break;
            case 1:
                io_stream_skip(&*s, n);
                break;
            case 2:
                io_stream_unread(&*s, bytes, n);
                break;
            case 3:
                io_stream_unskip(&*s, n);
                break;
            case 4:
                io_ostream_write(&*s, bytes, n);
                break;
            case 5:
                io_ostream_flush(&*s);
                break;
            case 6:
                s.ctl(IO_CTL_SETBUF, &size);
                break;
            case 7:
                s.ctl(IO_CTL_SETLIMIT, reinterpret_cast<void *>(uintptr_t{n}));
                break;
            case 8:
                s.ctl(IO_CTL_GETBUF, &lent);
                break;
            case 9:
                io_stream_read(&*s, bytes, 1);
                break;
            }
            ASSERT_TRUE(r.buffer ? uint64_t{r.position} + r.count <= r.buffer_size : r.count == 0) << round;
        }
    }
}

} // namespace
