// SPDX-License-Identifier: MIT
//
// Options that several verbs share. The objects must stay where they are until the command line is parsed.
#pragma once

#include "tools/decoder.h"
#include "tools/files/batch.h"
#include "tools/operations.h"
#include "tools/verbs/verbs.h"

#include <string>
#include <vector>

namespace tool {

// How files are read.
class ReadingOptions {
public:
    void add_to(CLI::App &verb);
    void add_max_pictures(CLI::App &verb);                            // for verbs that read all pictures of a file
    Reading reading() const;                                          // fails for values that are out of range
    void set_timeout(uint32_t seconds) { limits_.seconds = seconds; } // unless the user says otherwise

private:
    std::vector<std::string> options_{};
    std::string orient_ = "auto", sandbox_ = "auto";
    uint32_t most_pictures_ = Reading{}.most_pictures;
    Limits limits_{.memory = uint64_t{1} << 30};
};

// Which files become which, and how they are written.
class WritingOptions {
public:
    void add_to(CLI::App &verb);
    Reading reading() const;

    ReadingOptions reading_options{};
    Files files{};
    std::string to{}, keep = "all", quality{};
    bool sync = false;
};

// Whether a verb waits until what it writes has reached the disk.
void add_sync(CLI::App &verb, bool &sync);
void add_output_codec(CLI::App &verb, std::string &to);

// What convert and the verbs that are a single operation do.
struct Conversion {
    const WritingOptions &writing;
    Reading reading;
    std::vector<Operation> operations{}; // in the order in which they are done
};
int convert(const Conversion &conversion);

// An operation as an option of a command line: how to read it.
struct OperationOption {
    const char *name, *type, *help;
    Operation (*parse)(const std::string &);
};

// Adds a verb that is one operation, described by a required option of its own.
Verb add_operation(CLI::App &app, const char *name, const char *help, const OperationOption &option);

} // namespace tool
