#pragma once
// Rows that carry their handler, and the open whose handlers are its driver's.
//
//     constexpr RequestRow kLedRequests[] = {
//         request<&Led::set>(0x40084C21, "LED_SET", Direction::in, kLedFields),
//     };
//
// A handler is a member of the File, or of the Driver of a DriverFile, that returns an Outcome. It
// takes the record, which tells the row how long that is: by value or as `const Record&` where the
// device takes it, as `Record&` where the device fills it in. It may take a `RequestCall&` besides,
// or alone: for the argument, and for the caller's memory.

#include "serve/file.h"

#include <concepts>
#include <type_traits>

namespace vb {

// One open of a node that has nothing of its own: whatever it is asked, its driver answers.
template <class Driver>
class DriverFile : public File {
  public:
    DriverFile(Driver& driver, std::span<const RequestRow> rows) : driver_(driver), rows_(rows) {}

    std::span<const RequestRow> requests() const override { return rows_; }
    Driver& driver() const { return driver_; }

  private:
    Driver& driver_;
    std::span<const RequestRow> rows_;
};

// What a handler's signature says of its row.
template <class Record, bool kFills, bool kTakesCall>
struct RequestShape {
    static constexpr bool kHasRecord = !std::is_void_v<Record>;

    // Whether a row of this direction can have such a handler.
    static constexpr bool fits(RequestRow::Direction direction) {
        using Direction = RequestRow::Direction;
        if constexpr (kHasRecord) {
            return kFills ? direction == Direction::out || direction == Direction::inout
                          : direction == Direction::in;
        } else {
            return direction == Direction::none;
        }
    }

    static constexpr std::uint32_t size() {
        if constexpr (kHasRecord) {
            static_assert(std::is_trivially_copyable_v<Record>, "a record is plain bytes");
            return sizeof(Record);
        } else {
            return 0;
        }
    }

    template <class Target, class Method>
    static Outcome answer(Target& target, Method method, RequestCall& call) {
        if constexpr (kHasRecord) {
            auto record = record_from<Record>(call.record);
            Outcome outcome = ask(target, method, call, record);
            if constexpr (kFills) {
                std::memcpy(call.record.data(), &record, sizeof record);
            }
            return outcome;
        } else {
            return ask(target, method, call);
        }
    }

  private:
    template <class Target, class Method, class... Given>
    static Outcome ask(Target& target, Method method, RequestCall& call, Given&... record) {
        if constexpr (kTakesCall) {
            return (target.*method)(record..., call);
        } else {
            return (target.*method)(record...);
        }
    }
};

template <class... Parameters>
struct RequestShapeOf;
template <>
struct RequestShapeOf<> : RequestShape<void, false, false> {};
template <>
struct RequestShapeOf<RequestCall&> : RequestShape<void, false, true> {};
template <class Record>
struct RequestShapeOf<Record> : RequestShape<Record, false, false> {};
template <class Record>
struct RequestShapeOf<const Record&> : RequestShape<Record, false, false> {};
template <class Record>
struct RequestShapeOf<Record&> : RequestShape<Record, true, false> {};
template <class Record>
struct RequestShapeOf<const Record&, RequestCall&> : RequestShape<Record, false, true> {};
template <class Record>
struct RequestShapeOf<Record&, RequestCall&> : RequestShape<Record, true, true> {};

template <class Method>
struct RequestMethod;
template <class Class, class... Parameters>
struct RequestMethod<Outcome (Class::*)(Parameters...)> : RequestShapeOf<Parameters...> {
    static Class& target(File& file) {
        if constexpr (std::derived_from<Class, File>) {
            return static_cast<Class&>(file);
        } else {
            return static_cast<DriverFile<Class>&>(file).driver();
        }
    }
};
template <class Class, class... Parameters>
struct RequestMethod<Outcome (Class::*)(Parameters...) const>
    : RequestMethod<Outcome (Class::*)(Parameters...)> {};

template <auto handler>
consteval RequestRow request(std::uint32_t code, const char* name,
                             RequestRow::Direction direction = RequestRow::Direction::none,
                             std::span<const RecordField> fields = {}) {
    using Method = RequestMethod<decltype(handler)>;
    if (!Method::fits(direction)) {
        throw "the handler does not take its record in the row's direction"; // does not compile
    }
    return {code, name, direction, Method::size(), fields, [](File& file, RequestCall& call) {
                return Method::answer(Method::target(file), handler, call);
            }};
}

} // namespace vb
