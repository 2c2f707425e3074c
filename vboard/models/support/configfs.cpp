#include "models/support/configfs.h"

#include <algorithm>
#include <cerrno>

namespace vb::configfs {

namespace {

std::string_view text_in(ByteView bytes) {
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return text.substr(0, text.find('\0'));
}

} // namespace

void Item::add(const std::string& name, ShowLine show, StoreLine store) {
    Attribute::Store store_text;
    if (store) {
        store_text = [store = std::move(store)](WriteCall& call) {
            return store(text_in(call.data));
        };
    }
    add_bytes(
        name, [show = std::move(show)] { return show() + "\n"; }, std::move(store_text));
}

void Item::add_bytes(const std::string& name, Attribute::Show show, Attribute::Store store) {
    Attribute::Store store_most;
    if (store) {
        store_most = [store = std::move(store)](WriteCall& call) {
            call.data = call.data.first(std::min(call.data.size(), kLongestStore));
            return store(call);
        };
    }
    put(name, std::make_shared<Attribute>(std::move(show), std::move(store_most)));
}

void Item::add_standard(const std::shared_ptr<Item>& item) {
    item->standard_ = true;
    adopt(item);
}

void Item::adopt(const std::shared_ptr<Item>& item) {
    item->above_ = this;
    put(item->name_, item);
}

// --- directories ---

int Item::make(const std::string&, std::shared_ptr<Item>&) {
    return EPERM;
}

int Item::make_directory(const std::string& name) {
    std::shared_ptr<Item> made;
    const int error = find(name) ? EEXIST : make(name, made);
    if (error == 0) {
        adopt(made);
    }
    return error;
}

int Item::removable() const {
    if (links_ > 0) {
        return EBUSY;
    }
    int error = 0;
    for_each([&](const std::string&, const std::shared_ptr<Entry>& entry) {
        const auto* item = dynamic_cast<const Item*>(entry.get());
        if (error != 0 || dynamic_cast<const Node*>(entry.get()) != nullptr) {
            return;
        }
        error = item != nullptr && item->standard_ ? item->removable() : ENOTEMPTY;
    });
    return error;
}

int Item::remove_directory(const std::string& name) {
    const auto item = std::dynamic_pointer_cast<Item>(find(name));
    if (!item) {
        return ENOTDIR;
    }
    const int error = item->standard_ ? EPERM : item->removable();
    if (error == 0) {
        drop(*item);
        take(name);
    }
    return error;
}

// --- links ---

int Item::link(Item&) {
    return EPERM;
}

// From here to the top and down again: the path that the kernel writes.
std::string Item::path_to(const Item& target) const {
    std::string up;
    for (const Item* item = this; item != nullptr; item = item->above_) {
        up += "../";
    }
    std::string down = target.name_;
    for (const Item* item = target.above_; item != nullptr; item = item->above_) {
        down.insert(0, item->name_ + "/");
    }
    return up + down;
}

int Item::make_link(const std::string& name, const LinkCall& call) {
    if (!takes_links()) {
        return EPERM;
    }
    const Found& found = call.target;
    const auto target = std::dynamic_pointer_cast<Item>(found.entry);
    if (!target) {
        const bool file = found.entry ? !S_ISDIR(found.entry->mode()) : bool(found.file);
        return file ? ENOTDIR : EPERM;
    }
    const int error = find(name) ? EEXIST : target->gone() ? ENOENT : link(*target);
    if (error == 0) {
        put(name, std::make_shared<Symlink>(path_to(*target)));
        ++target->links_;
        linked_[name] = target;
    }
    return error;
}

int Item::remove_link(const std::string& name) {
    const auto found = linked_.find(name);
    if (found == linked_.end()) {
        return EPERM;
    }
    const std::shared_ptr<Item> target = found->second;
    linked_.erase(found);
    take(name);
    unlink(*target);
    --target->links_;
    return 0;
}

// --- texts ---

int parse_unsigned(std::string_view text, unsigned long most, unsigned long& value) {
    long number = 0;
    const int error = text.starts_with('-') ? EINVAL : parse_integer(text, number);
    if (error != 0) {
        return error;
    }
    value = static_cast<unsigned long>(number);
    return value > most ? ERANGE : 0;
}

std::string_view line_of(ByteView bytes) {
    std::string_view text = text_in(bytes);
    if (text.ends_with('\n')) {
        text.remove_suffix(1);
    }
    return text;
}

} // namespace vb::configfs
