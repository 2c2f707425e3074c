#pragma once
// os_desc/: kept for who sets it up and reads it back. No such descriptor reaches the host.

#include "models/support/configfs.h"

namespace vb::gadget {

class Gadget;

class OsDescriptors : public configfs::Item {
  public:
    explicit OsDescriptors(Gadget& gadget);

  protected:
    bool takes_links() const override { return true; }
    int link(configfs::Item& target) override;
    void unlink(configfs::Item& target) override;

  private:
    Gadget& gadget_;
    bool use_ = false;
    std::uint8_t vendor_code_ = 0;
    std::string signature_;
    bool linked_ = false; // to the configuration that has them
};

} // namespace vb::gadget
