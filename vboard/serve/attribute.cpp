#include "serve/attribute.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <optional>

namespace vb {

// One open of an attribute.
class AttributeFile : public File {
  public:
    explicit AttributeFile(std::shared_ptr<Attribute> attribute)
        : attribute_(std::move(attribute)) {}

    Outcome read(std::size_t size, std::uint64_t offset) override;
    Outcome write(WriteCall& call) override;
    bool takes_paths() const override { return attribute_->takes_paths_; }
    bool seekable() const override { return true; }
    short readiness() const override {
        return static_cast<short>(kAlways | (seen_ == attribute_->events_ ? 0 : kEvent));
    }
    short readiness_when_gone() const override { return kAlways | kEvent; }

  private:
    static constexpr short kAlways = POLLIN | POLLOUT | POLLRDNORM | POLLWRNORM;
    static constexpr short kEvent = POLLPRI | POLLERR;

    std::shared_ptr<Attribute> attribute_;
    std::uint64_t seen_ = 0;
    std::optional<std::string> text_;
};

Outcome AttributeFile::read(std::size_t size, std::uint64_t offset) {
    if (offset == 0 || !text_ || attribute_->reading_ == Attribute::Reading::fresh) {
        try {
            text_ = attribute_->show_();
        } catch (const Attribute::CannotShow& why) {
            text_.reset();
            return Outcome::failed(why.error);
        }
        seen_ = attribute_->events_;
    }
    const std::string_view text = *text_;
    const std::string_view part = text.substr(std::min<std::size_t>(offset, text.size()), size);
    return Outcome::bytes(Bytes(part.begin(), part.end()));
}

Outcome AttributeFile::write(WriteCall& call) {
    call.data = call.data.first(std::min(call.data.size(), Attribute::kPage));
    const int error = attribute_->store_(call);
    return error == 0 ? Outcome::done(static_cast<int>(call.data.size())) : Outcome::failed(error);
}

namespace {

mode_t mode_of(bool readable, bool writable) {
    return static_cast<mode_t>(S_IFREG | (readable ? 0444 : 0) | (writable ? 0200 : 0));
}

} // namespace

Attribute::Attribute(Show show, Store store, Reading reading)
    : Node(mode_of(static_cast<bool>(show), static_cast<bool>(store))),
      show_(std::move(show)),
      store_(std::move(store)),
      reading_(reading) {}

Outcome Attribute::open(const OpenCall& call, std::unique_ptr<File>& file) {
    const int access = call.flags & O_ACCMODE;
    if ((access != O_WRONLY && !show_) || (access != O_RDONLY && !store_)) {
        return Outcome::failed(EACCES);
    }
    file = opens_.open(shared_from_this());
    return Outcome::done();
}

void Attribute::notify() {
    ++events_;
    for (AttributeFile* file : opens_) {
        file->changed();
    }
}

namespace {

// What a call writes, up to its first NUL.
std::string_view text_of(const WriteCall& call) {
    const std::string_view text(reinterpret_cast<const char*>(call.data.data()), call.data.size());
    return text.substr(0, text.find('\0'));
}

} // namespace

std::shared_ptr<Attribute> line_attribute(ShowLine show, StoreLine store,
                                          Attribute::Reading reading) {
    Attribute::Show show_bytes;
    if (show) {
        show_bytes = [show = std::move(show)] { return show() + "\n"; };
    }
    Attribute::Store store_bytes;
    if (store) {
        store_bytes = [store = std::move(store)](WriteCall& call) { return store(text_of(call)); };
    }
    return std::make_shared<Attribute>(std::move(show_bytes), std::move(store_bytes), reading);
}

std::shared_ptr<Attribute> fixed_attribute(std::string text) {
    return line_attribute([text = std::move(text)] { return text; }, nullptr);
}

bool is_word(std::string_view text, std::string_view word) {
    if (text.ends_with('\n')) {
        text.remove_suffix(1);
    }
    return text == word;
}

namespace {

int take_base(std::string_view& digits) {
    if (digits.size() > 2 && (digits.starts_with("0x") || digits.starts_with("0X"))) {
        digits.remove_prefix(2);
        return 16;
    }
    return digits.starts_with('0') ? 8 : 10;
}

} // namespace

int parse_integer(std::string_view text, long& value) {
    if (text.ends_with('\n')) {
        text.remove_suffix(1);
    }
    const bool minus = text.starts_with('-');
    if (minus || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    const int base = take_base(text);
    unsigned long size = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), size, base);
    if (error == std::errc::invalid_argument || end != text.data() + text.size()) {
        return EINVAL;
    }
    const unsigned long most = static_cast<unsigned long>(LONG_MAX) + (minus ? 1 : 0);
    if (error != std::errc{} || size > most) {
        return ERANGE;
    }
    value = static_cast<long>(minus ? 0 - size : size);
    return 0;
}

} // namespace vb
