#include "serve/content_file.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>

namespace vb {

namespace {

class ContentFile : public File {
  public:
    explicit ContentFile(std::shared_ptr<const Bytes> content) : content_(std::move(content)) {}

    Outcome read(std::size_t size, std::uint64_t offset) override {
        const ByteView rest =
            ByteView(*content_).subspan(std::min<std::size_t>(offset, content_->size()));
        const ByteView part = rest.first(std::min(size, rest.size()));
        return Outcome::bytes({part.begin(), part.end()});
    }
    bool seekable() const override { return true; }

  private:
    std::shared_ptr<const Bytes> content_;
};

} // namespace

ContentNode::ContentNode(Bytes content)
    : Node(S_IFREG | 0444), content_(std::make_shared<const Bytes>(std::move(content))) {}

Outcome ContentNode::open(const OpenCall& call, std::unique_ptr<File>& file) {
    if ((call.flags & O_ACCMODE) != O_RDONLY) {
        return Outcome::failed(EROFS);
    }
    file = std::make_unique<ContentFile>(content_);
    return Outcome::done();
}

} // namespace vb
