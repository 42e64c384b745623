#pragma once

// The compiled form of a script: a straight list of column instructions over numbered slots. An
// If becomes mask instructions, so every statement runs once over a whole batch of features and
// affects only the features whose conditions hold.

#include <cstdint>
#include <string>
#include <vector>

namespace quorel::host::script {

enum class OpCode : std::uint8_t {
    kAdd,
    kSubtract,
    kMultiply,
    kDivide,
    kIntegerDivide,
    kMod,
    kPower,
    kEqual,
    kNotEqual,
    kLess,
    kGreater,
    kLessOrEqual,
    kGreaterOrEqual,
    kAnd,
    kOr,
    kLogicalAnd, // And of two truth values (True, False, Null)
    kLogicalOr,
    kNegate,
    kNot,
    kLogicalNot,
    kStore,      // dst = a where the current mask holds; b = 1 inside an If
    kIfBegin,    // opens a level: Then mask from condition a; jump when no feature takes it
    kIfTest,     // kIfBegin on a comparison (test: a ? b) or the And of two (and test2: c ? d)
    kElseIfPrep, // the remaining features become current, before an ElseIf's condition
    kElseIfTest, // narrows to the features whose condition a holds; jump when none
    kElse,       // the remaining features become current; jump to kEndIf when none
    kEndIf,      // closes the level
};

// Null is NaN in a slot; variables also keep, per feature, whether they are still Empty.
struct Instruction {
    OpCode op;
    std::uint32_t dst = 0;
    std::uint32_t a = 0;
    std::uint32_t b = 0;
    std::uint32_t jump = 0; // control instructions: index of the instruction to go to
    // kIfTest: the comparisons; test2 is kIfTest itself when there is only one.
    OpCode test = OpCode::kEqual;
    OpCode test2 = OpCode::kIfTest;
    std::uint32_t c = 0;
    std::uint32_t d = 0;
};

enum class SlotKind : std::uint8_t { kField, kVariable, kConstant, kTemporary };

struct Slot {
    SlotKind kind;
    std::uint32_t field = 0; // kField: index into the field names
    double value = 0.0;      // kConstant (NaN for Null)
    bool empty = false;      // kConstant: the constant Empty
};

struct CompiledScript {
    std::vector<Instruction> code;
    std::vector<Slot> slots;
    std::vector<std::string> fieldNames;
    std::vector<std::uint32_t> fieldSlots; // slot of each field, in field order
    std::uint32_t resultSlot = 0;
    std::uint32_t maxDepth = 0;            // deepest If nesting
    std::vector<std::uint32_t> resetSlots; // variables whose initial Empty may be read
};

} // namespace quorel::host::script
