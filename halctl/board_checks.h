#pragma once
// What the library needs of a board, module by module, as data: for `halctl doctor`.

#include <string>
#include <vector>

namespace halctl {

enum class Need {
    node,     // a device that is read and written
    source,   // a device that is read only
    file,     // a file that is read
    setting,  // a file that is written
    folder,   // one that things are made in
    line,     // a line of the kernel's GPIO class, by its number; it need not be exported
    disk,     // a folder in /sys that holds a disk's name, and that disk
    adapter,  // a network interface, by what it is to be found in of its device's path
    program,  // a program on PATH, or at a path of its own
    function, // a function that another library brings into the process
    socket,   // the kernel's uevents
};

// What a need is called: "node".
const char* name_of(Need need);

struct Check {
    std::string module; // as its header is called
    Need need;
    std::string what; // paths may hold "*"; of several, between " or ", one has to be there
    std::string cost; // what does not work without
};

// Sorted by module. What is there only once something has been done (a line that is exported, a
// stick that is plugged in) is not in it, but what that takes.
std::vector<Check> board_checks();

} // namespace halctl
