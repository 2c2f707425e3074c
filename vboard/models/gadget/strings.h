#pragma once
// The texts of a device or of a configuration, a directory for each language: strings/0x409.

#include "models/support/configfs.h"

#include <vector>

namespace vb::gadget {

class Language : public configfs::Item {
  public:
    Language(std::string name, std::uint16_t id, const std::vector<const char*>& texts);

    std::uint16_t id() const { return id_; }
    // In the order in which they were named.
    const std::vector<std::string>& texts() const { return texts_; }
    // For a device whose texts nobody stores.
    void say(std::size_t which, std::string text) { texts_.at(which) = std::move(text); }

  private:
    std::uint16_t id_;
    std::vector<std::string> texts_;
};

class Strings : public configfs::Item {
  public:
    // The attributes that each language has.
    explicit Strings(std::vector<const char*> texts) : Item("strings"), texts_(std::move(texts)) {}

    // In the order in which they were made.
    const std::vector<std::shared_ptr<Language>>& languages() const { return languages_; }

  protected:
    int make(const std::string& name, std::shared_ptr<configfs::Item>& made) override;
    void drop(configfs::Item& item) override;

  private:
    std::vector<const char*> texts_;
    std::vector<std::shared_ptr<Language>> languages_;
};

} // namespace vb::gadget
