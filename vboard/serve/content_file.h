#pragma once
// A file of the board's file system: bytes to read, which never change. Opening it for writing is
// EROFS.

#include "serve/tree.h"

namespace vb {

class ContentNode : public Node {
  public:
    explicit ContentNode(Bytes content);

    Outcome open(const OpenCall& call, std::unique_ptr<File>& file) override;
    std::uint64_t size() const override { return content_->size(); }

  private:
    std::shared_ptr<const Bytes> content_; // shared with every open
};

} // namespace vb
