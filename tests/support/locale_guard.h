// Switches the process locale for the length of a test and puts "C" back at
// the end, whatever the test did in between. The test locales are found
// through LOCPATH (the build tree sets it).
#pragma once

#include <clocale>

namespace murv::test {

class LocaleGuard {
public:
    explicit LocaleGuard(const char* name) : ok_(std::setlocale(LC_ALL, name) != nullptr) {}
    ~LocaleGuard() { std::setlocale(LC_ALL, "C"); }
    LocaleGuard(const LocaleGuard&) = delete;
    LocaleGuard& operator=(const LocaleGuard&) = delete;

    bool ok() const { return ok_; }

private:
    bool ok_;
};

}  // namespace murv::test

// Declares a LocaleGuard named `guard` and skips the test when the locale
// cannot be set.
#define MURV_USE_LOCALE(guard, name)                                                  \
    ::murv::test::LocaleGuard guard(name);                                            \
    if (!(guard).ok()) GTEST_SKIP() << "locale " << (name) << " is not available "    \
                                       "(is LOCPATH set to the generated locales?)"
