#pragma once
// One side of a comparison: a process that measures a case when it is told its number.

#include <sys/types.h>

#include <cstdio>
#include <vector>

namespace bench {

class Side {
  public:
    // `words` is the command line.
    explicit Side(std::vector<const char*> words);
    ~Side();
    Side(const Side&) = delete;
    Side& operator=(const Side&) = delete;

    // What the process prints: nanoseconds of one call.
    double measure(std::size_t which);

  private:
    pid_t child_ = 0;
    std::FILE* to_ = nullptr;
    std::FILE* from_ = nullptr;
};

double median(std::vector<double> values);

} // namespace bench
