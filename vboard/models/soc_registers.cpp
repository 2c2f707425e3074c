// Registers of the processor that programs reach by address, with the board's program `bspmm`.
//
// What is ours to choose, and what programs may rely on:
// - A register is a word of 32 bits at a multiple of 4, and 0 until somebody writes it. Nothing
//   follows from what is written.
// - `bspmm ADDRESS` prints the value, `bspmm ADDRESS VALUE` writes it; both end with 0. What is no
//   address or value ends with 1.

#include "models/kinds.h"

namespace vb {

namespace {

constexpr std::int64_t kHighestWord = 0xFFFFFFFF;

class SocRegisters : public Model {
  public:
    SocRegisters(Board& board, Settings& settings);

  private:
    static std::uint32_t address_in(const Json& arguments);
    void trace(const char* operation, std::uint32_t address, std::uint32_t value);

    Board& board_;
    std::map<std::uint32_t, std::uint32_t> words_;
};

SocRegisters::SocRegisters(Board& board, Settings&) : board_(board) {
    const Argument address = Argument::integer("address", 0, kHighestWord);
    board.verbs().add(
        {"register.read", {address}, "a register of the processor", [this](const Json& call) {
             const std::uint32_t at = address_in(call);
             const auto found = words_.find(at);
             const std::uint32_t value = found == words_.end() ? 0 : found->second;
             trace("read", at, value);
             return Json(value);
         }});
    board.verbs().add({"register.write",
                       {address, Argument::integer("value", 0, kHighestWord)},
                       "write a register of the processor",
                       [this](const Json& call) -> Json {
                           const std::uint32_t at = address_in(call);
                           words_[at] = call["value"].get<std::uint32_t>();
                           trace("write", at, words_[at]);
                           return {};
                       }});
}

std::uint32_t SocRegisters::address_in(const Json& arguments) {
    const auto address = arguments["address"].get<std::uint32_t>();
    if (address % sizeof address != 0) {
        throw VerbError("a register's address is a multiple of 4");
    }
    return address;
}

void SocRegisters::trace(const char* operation, std::uint32_t address, std::uint32_t value) {
    board_.trace().add("register",
                       {{"operation", operation}, {"address", address}, {"value", value}});
}

} // namespace

const ModelKind kSocRegisters{"soc_registers",
                              "registers of the processor, and their program `bspmm`",
                              {},
                              make_model<SocRegisters>};

} // namespace vb
