#pragma once
// A device node whose every open is a File of one kind.

#include "serve/opens.h"
#include "serve/request_handler.h"
#include "serve/tree.h"

namespace vb {

class DeviceNode : public Node {
  public:
    using MakeFile = std::function<std::unique_ptr<File>()>;

    explicit DeviceNode(MakeFile make) : Node(S_IFREG | 0666), make_(std::move(make)) {}
    Outcome open(const OpenCall&, std::unique_ptr<File>& file) override {
        file = make_();
        return Outcome::done();
    }
    bool can_be_cut() const override { return false; }

  private:
    MakeFile make_;
};

// A node whose opens are each a `Made`, made from its owner (which has to last) and what else there
// is to say.
template <class Made, class Owner, class... More>
std::shared_ptr<Node> device_node(Owner& owner, More... more) {
    return std::make_shared<DeviceNode>(
        [&owner, more...] { return std::make_unique<Made>(owner, more...); });
}

// The same, of which the owner keeps the opens.
template <class Made, class Owner, class... More>
std::shared_ptr<Node> device_node(Opens<Made>& opens, Owner& owner, More... more) {
    return std::make_shared<DeviceNode>(
        [&opens, &owner, more...] { return opens.open(owner, more...); });
}

// A node whose requests are all its driver's, which has to last: rows of members of the driver.
template <class Driver>
std::shared_ptr<Node> driver_node(Driver& driver, std::span<const RequestRow> rows) {
    return device_node<DriverFile<Driver>>(driver, rows);
}

} // namespace vb
