#pragma once
// What models offer one another, by type and name: lines, buses, cables, disks. A model asks for
// what it is wired to and need not know whose it is; the board knows none of the types.

#include <any>
#include <map>
#include <memory>
#include <string>
#include <typeindex>
#include <vector>

namespace vb {

class Parts {
  public:
    // Offers a part. Where the name is taken it is the one that has it who stays.
    template <class Part>
    Part& offer(const std::string& name, std::shared_ptr<Part> part) {
        return *of<Part>().emplace(name, std::move(part)).first->second;
    }

    // Null where nobody offers it.
    template <class Part>
    Part* find(const std::string& name) {
        const auto found = of<Part>().find(name);
        return found == of<Part>().end() ? nullptr : found->second.get();
    }

    // All of a type, by their names.
    template <class Part>
    std::vector<Part*> all() {
        std::vector<Part*> parts;
        for (const auto& [name, part] : of<Part>()) {
            parts.push_back(part.get());
        }
        return parts;
    }

  private:
    template <class Part>
    using Named = std::map<std::string, std::shared_ptr<Part>>;

    template <class Part>
    Named<Part>& of() {
        std::any& named = types_[typeid(Part)];
        if (!named.has_value()) {
            named = Named<Part>();
        }
        return std::any_cast<Named<Part>&>(named);
    }

    std::map<std::type_index, std::any> types_;
};

} // namespace vb
