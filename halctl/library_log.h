#pragma once
// What the library logs while a command runs. Its C interface answers many failures with a plain
// -1; the errno that is still the failed call's when a sink is called tells them apart.

#include "output.h"

#include <hal_bsp/log.h>

#include <mutex>
#include <string>

namespace halctl {

// The source that our own messages carry.
inline constexpr char kOurLogName[] = "halctl";

struct LibraryError {
    std::string text; // without the newline; empty: nothing was logged
    int error = 0;    // errno at that moment
};

// Made once: sinks cannot be taken away again, so it has to last as long as the process.
class LibraryLog {
  public:
    explicit LibraryLog(const Output& output);
    ~LibraryLog() = default;
    LibraryLog(const LibraryLog&) = delete;
    LibraryLog& operator=(const LibraryLog&) = delete;

    // The newest message of level ERROR or above.
    LibraryError last_error() const;
    // From now on an error is also shown as it comes, unless it is the same as before: for
    // commands that go on after one.
    void show_errors();
    // From now on warnings are not shown: for calls that warn of what is in order.
    void keep_warnings_aside();

  private:
    static void take(log_event* event);
    void take(int level, std::string text, int error);

    const Output& output_;
    mutable std::mutex mutex_;
    LibraryError last_;
    bool show_errors_ = false;
    bool show_warnings_ = true;
};

} // namespace halctl
