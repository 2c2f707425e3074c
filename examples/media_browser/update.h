#pragma once
// Update images that are found on sticks.

#include <string>

namespace media {

class Updater {
  public:
    // Images are written to this partition of the slot that does not run; empty: they are not.
    explicit Updater(std::string partition) : partition_(std::move(partition)) {}

    // Whether there is such a partition, if one was named.
    bool has_target() const;

    // Offers a file to the firmware and says what became of that; nothing where it is no image, of
    // which next to nothing is read. The first good image is written, and no other afterwards.
    std::string offer(const std::string& path);

  private:
    std::string device() const;
    std::string write(const std::string& path);

    std::string partition_;
    bool written_ = false;
};

} // namespace media
