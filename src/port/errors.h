// The exceptions that carry failures from the inner layers to the interface.
#pragma once

#include <stdexcept>
#include <string>

namespace murv {

// Internal error numbers of the dataset and file layers.
enum ErrorNumber : long {
    kErrStreamOpen = 1000,       // a stream cannot open its file
    kErrStreamWrite = 1002,      // a write failed
    kErrStreamRead = 1003,       // a read or seek failed
    kErrFileOpen = 1201,         // a system file cannot be opened or reopened
    kErrBadContent = 1204,       // the file's content is invalid
    kErrFileEnds = 1205,         // the file ends inside a structure
    kErrBadState = 1209,         // an operation not allowed in the dataset's state
    kErrCaseWrite = 1502,        // a case could not be written
    kErrNoShortName = 1504,      // no short name is left for a variable
    kErrDuplicateName = 1505,    // two variables share a name at commit
    kErrNoShortNameInFile = 1507 // a variable has no short name in the file read
};

// A failure of the dataset layer: an error number and up to two names.
class ErrorText : public std::runtime_error {
public:
    ErrorText(long number, std::string text);
    long Number() const noexcept { return number_; }

    [[noreturn]] static void Throw(long number);
    [[noreturn]] static void Throw(long number, const std::string& name);
    [[noreturn]] static void Throw(long number, const std::string& name1, const std::string& name2);

private:
    long number_;
};

// A malformed system file: where in the code the check failed, what it was
// and the error number to report.
class SystemFileException : public std::runtime_error {
public:
    SystemFileException(std::string sourcePath, std::string condition, long number, int line);
    const std::string& SourcePath() const noexcept { return sourcePath_; }
    const std::string& Condition() const noexcept { return condition_; }
    long Number() const noexcept { return number_; }
    int Line() const noexcept { return line_; }

private:
    std::string sourcePath_;
    std::string condition_;
    long number_;
    int line_;
};

}  // namespace murv

// Checks a condition on file contents and throws SystemFileException.
#define MURV_FILE_CHECK(cond, number)                                                 \
    do {                                                                               \
        if (!(cond)) throw ::murv::SystemFileException(__FILE__, #cond, (number), __LINE__); \
    } while (0)
