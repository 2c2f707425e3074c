#pragma once
// Standard output and standard error are ours. The library, and the tools it runs, print there by
// themselves, and daemons they start keep them open: while a command runs they get others, and we
// go on with descriptors of our own that no child sees.

#include "command.h"

#include <cstdio>

namespace halctl {

// Where our data and our complaints go. Null where the caller has closed it.
std::FILE* terminal_out();
std::FILE* terminal_err();
bool is_terminal(std::FILE* file);

// Whether everything printed has arrived. False with errno where it has not.
bool all_has_arrived();

// Gives the library other descriptors to print to, for as long as it lives. Keeps errno.
class LibraryElsewhere {
  public:
    LibraryElsewhere(LibraryPrints prints, bool verbose);
    ~LibraryElsewhere();
    LibraryElsewhere(const LibraryElsewhere&) = delete;
    LibraryElsewhere& operator=(const LibraryElsewhere&) = delete;
};

} // namespace halctl
