// SPDX-License-Identifier: MIT
//
// How a codec module is entered. A format supplies two classes, and functions_of makes the module's table of them:
//
//     class Reader : public BaseReader {
//     public:
//         static constexpr bool many_pictures = ...;        // in a file, of which one Reader reads all
//         static bool recognises(const Signature &start);   // whether a stream begins with the format: be strict
//         using BaseReader::BaseReader;
//         img_status frame();                               // reads the next picture
//     };
//     class Writer : public BaseWriter {
//     public:
//         static constexpr bool many_pictures = ...;        // go into a file, and one Writer writes all
//         using BaseWriter::BaseWriter;
//         img_status begin();                               // with many_pictures: before the first picture,
//         img_status finish();                              // and after the last one, also if there is none
//         img_status frame();                               // writes a picture
//     };
//
// Where files have one picture each, every frame has a Reader or Writer of its own, and before a picture is read the stream
// is looked at again: what follows a picture and is no further one stays in the stream.
#pragma once

#include "modules/common/picture.h"

#include <setjmp.h>

namespace codec {

class BaseReader {
public:
    BaseReader(io_handle &stream, Decoding &picture) : stream_(stream), picture_(picture) {}
    BaseReader(const BaseReader &) = delete;
    BaseReader &operator=(const BaseReader &) = delete;

protected:
    io_handle &stream_;
    Decoding &picture_;
};

class BaseWriter {
public:
    BaseWriter(io_handle &stream, Encoding &picture) : stream_(stream), picture_(picture) {}
    BaseWriter(const BaseWriter &) = delete;
    BaseWriter &operator=(const BaseWriter &) = delete;

protected:
    io_handle &stream_;
    Encoding &picture_;
};

// Of formats that are only read.
struct NoWriter {};

// Codec libraries that report errors by longjmp are called within guarded() only. What runs there has no object with a
// destructor, and everything that changes is a member of an object on the heap, which outlives the jump.
class Guard {
protected:
    template <typename Step> img_status guarded(Step step) {
        if (setjmp(jump_)) return failure_;
        return step();
    }
    [[noreturn]] void leave() { longjmp(jump_, 1); }
    [[noreturn]] void leave(img_status status) {
        failure_ = status;
        leave();
    }

    img_status failure_ = no_memory; // what leaving means

private:
    jmp_buf jump_;
};

// ---- From the functions of the table to the classes ----

template <typename Reader> struct Decoder {
    struct State {
        explicit State(io_handle &stream) : reader(stream, picture) {}
        Decoding picture;
        Reader reader;
    };

    static img_status validate(io_handle *stream) {
        Signature start;
        if (const img_status status = peek(*stream, start)) return status;
        return Reader::recognises(start) ? ok : wrong_format;
    }
    static img_status begin(io_handle *stream, void **) {
        want_large_buffer(*stream);
        return ok;
    }
    static img_status frame(io_handle *stream, const img_decode_callouts *callouts, img_record *record, void **state) {
        if (Reader::many_pictures) {
            if (!*state) *state = make<State>(*stream).release();
            return *state ? frame_of(*static_cast<State *>(*state), *callouts, *record) : no_memory;
        }
        if (const img_status status = validate(stream)) return status;
        const auto own = make<State>(*stream);
        return own ? frame_of(*own, *callouts, *record) : no_memory;
    }
    static img_status finish(io_handle *, void **state) {
        if (*state) Delete<State>{}(static_cast<State *>(*state));
        *state = nullptr;
        return ok;
    }

private:
    static img_status frame_of(State &state, const img_decode_callouts &callouts, img_record &record) {
        state.picture.begin(callouts, record);
        return state.reader.frame();
    }
};

template <typename Writer> struct Encoder {
    struct State {
        explicit State(io_handle &stream) : writer(stream, picture) {}
        Encoding picture;
        Writer writer;
    };

    static img_status begin(io_handle *stream, void **state) {
        want_large_buffer(*stream);
        if constexpr (Writer::many_pictures) {
            auto own = make<State>(*stream);
            if (!own) return no_memory;
            if (const img_status status = own->writer.begin()) return status;
            *state = own.release();
        }
        return ok;
    }
    static img_status frame(io_handle *stream, const img_encode_callouts *callouts, img_record *image, void **state) {
        if (Writer::many_pictures) return frame_of(*static_cast<State *>(*state), *callouts, *image);
        const auto own = make<State>(*stream);
        return own ? frame_of(*own, *callouts, *image) : no_memory;
    }
    static img_status finish(io_handle *, void **state) {
        if constexpr (Writer::many_pictures) {
            const std::unique_ptr<State, Delete<State>> own(static_cast<State *>(*state));
            *state = nullptr;
            return own->writer.finish();
        }
        return ok;
    }

private:
    static img_status frame_of(State &state, const img_encode_callouts &callouts, img_record &image) {
        if (const img_status status = state.picture.begin(callouts, image)) return status;
        return state.writer.frame();
    }
};

template <> struct Encoder<NoWriter> {
    static constexpr decltype(img_codec_funcs::encode_begin) begin = nullptr;
    static constexpr decltype(img_codec_funcs::encode_frame) frame = nullptr;
    static constexpr decltype(img_codec_funcs::encode_finish) finish = nullptr;
};

// What a module's img_codec_getfuncs returns.
template <typename Reader, typename Writer> img_status functions_of(img_codec_funcs *table, size_t size) {
    using Read = Decoder<Reader>;
    using Write = Encoder<Writer>;
    if (size < sizeof *table) return unsupported;
    *table = {Read::validate, Read::begin, Read::frame, Read::finish, Write::begin, Write::frame, Write::finish};
    return ok;
}

} // namespace codec
