#include "port/errors.h"

#include <cstdio>
#include <cstdlib>

#include "port/assert.h"

namespace murv {

void AssertionFailed(const char* condition, const char* file, int line) {
    std::fprintf(stderr, "murvio: assertion failed: %s (%s, line %d)\n", condition, file, line);
    std::fflush(stderr);
    std::abort();
}

ErrorText::ErrorText(long number, std::string text) : std::runtime_error(std::move(text)), number_(number) {}

void ErrorText::Throw(long number) {
    throw ErrorText(number, "Datasource error # " + std::to_string(number));
}

void ErrorText::Throw(long number, const std::string& name) {
    throw ErrorText(number, "Datasource error # " + std::to_string(number) + " involving " + name);
}

void ErrorText::Throw(long number, const std::string& name1, const std::string& name2) {
    throw ErrorText(number, "Datasource error # " + std::to_string(number) + " involving " + name1 +
                                " and " + name2);
}

SystemFileException::SystemFileException(std::string sourcePath, std::string condition, long number,
                                         int line)
    : std::runtime_error("system file check failed: " + condition),
      sourcePath_(std::move(sourcePath)),
      condition_(std::move(condition)),
      number_(number),
      line_(line) {}

}  // namespace murv
