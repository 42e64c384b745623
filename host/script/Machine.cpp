#include "host/script/Machine.h"

#include "host/script/ColumnOps.h"
#include "host/script/Operations.h"
#include "util/Error.h"

#include <algorithm>

namespace quorel::host::script {

namespace {

using column::Bits;
using column::kLanes;
using column::Vec;

const char* const kSource = "Field calculator script";
constexpr std::int64_t kAll = -1;

[[noreturn]] void ThrowRuntimeError(int error) {
    switch (error) {
    case kDivideByZero:
        throw Error(error_number::kDivisionByZero, kSource, "Division by zero");
    case kOverflowError:
        throw Error(error_number::kOverflow, kSource, "Overflow");
    default:
        throw Error(error_number::kInvalidArgument, kSource, "Invalid procedure call or argument");
    }
}

bool AnySet(const std::int64_t* mask, std::size_t lanes) {
    Bits any{};
    for (std::size_t i = 0; i < lanes; i += kLanes) {
        any |= column::LoadBits(mask + i);
    }
    return (any[0] | any[1]) != 0;
}

// The error number of the first feature of the mask whose operation fails.
template <typename Scalar>
int FirstError(const double* left, const double* right, std::size_t lanes,
               const std::int64_t* mask) {
    for (std::size_t i = 0; i < lanes; ++i) {
        if (mask[i] != 0) {
            int error = kNoError;
            Scalar::Apply(left[i], right[i], error);
            if (error != kNoError) {
                return error;
            }
        }
    }
    return kInvalidCall; // not reached: the column form and Apply agree on failures
}

} // namespace

Machine::Machine(const CompiledScript& script)
    : m_script(script), m_values(script.slots.size() * kChunk),
      m_empty(script.slots.size() * kChunk), m_masks(2 * (script.maxDepth + 1) * kChunk),
      m_noFlags(kChunk, 0), m_allFlags(kChunk, kAll) {
    for (std::uint32_t slot = 0; slot < script.slots.size(); ++slot) {
        const Slot& description = script.slots[slot];
        if (description.kind == SlotKind::kConstant) {
            std::fill_n(Values(slot), kChunk, description.value);
        }
    }
}

const std::int64_t* Machine::EmptyFlags(std::uint32_t slot) const {
    const Slot& description = m_script.slots[slot];
    if (description.kind == SlotKind::kVariable) {
        return &m_empty[slot * kChunk];
    }
    return description.kind == SlotKind::kConstant && description.empty ? m_allFlags.data()
                                                                        : m_noFlags.data();
}

namespace {

// Runs `loop` with the right operand as a function of the lane. A constant on the right (the
// usual "[FIELD] <= 5") stays in a register, and whatever the loop checks of it is done once,
// out of the loop.
template <typename Loop> auto WithRight(const Slot& slot, const double* values, Loop loop) {
    if (slot.kind == SlotKind::kConstant) {
        return loop([constant = column::Splat(slot.value)](std::size_t) { return constant; });
    }
    return loop([values](std::size_t i) { return column::Load(values + i); });
}

// One operation over the lanes; `right` gives the right operand's vector at a lane.
template <typename Op, typename Right>
Bits ColumnLoop(const double* left, Right right, double* result, std::size_t lanes,
                const std::int64_t* mask) {
    Bits failed{};
    for (std::size_t i = 0; i < lanes; i += kLanes) {
        Bits fails{};
        const Vec r = Op::Compute(column::Load(left + i), right(i), fails);
        column::Save(result + i, r);
        failed |= fails & column::LoadBits(mask + i);
    }
    return failed;
}

} // namespace

template <typename Op>
int Machine::Vector(const Instruction& instruction, std::size_t lanes, const std::int64_t* mask) {
    const double* left = Values(instruction.a);
    const double* right = Values(instruction.b);
    double* result = Values(instruction.dst); // never an operand's slot
    const Bits failed = WithRight(m_script.slots[instruction.b], right, [&](auto rightAt) {
        return ColumnLoop<Op>(left, rightAt, result, lanes, mask);
    });
    if ((failed[0] | failed[1]) == 0) {
        return kNoError;
    }
    return FirstError<typename Op::Scalar>(left, right, lanes, mask);
}

template <typename Op>
int Machine::PerFeature(const Instruction& instruction, std::size_t lanes,
                        const std::int64_t* mask) {
    const double* left = Values(instruction.a);
    const double* right = Values(instruction.b);
    double* result = Values(instruction.dst);
    bool failed = false;
    for (std::size_t i = 0; i < lanes; ++i) {
        int error = kNoError;
        result[i] = Op::Apply(left[i], right[i], error);
        failed |= error != kNoError && mask[i] != 0;
    }
    return failed ? FirstError<Op>(left, right, lanes, mask) : kNoError;
}

namespace {

// Where a comparison holds, as a mask: False and Null alike are clear. The ordered comparisons
// are false on NaN (Null) by themselves; <> needs both sides checked.
struct HoldsEqual {
    static Bits Of(Vec a, Vec b) { return column::Mask(a == b); }
};
struct HoldsNotEqual {
    static Bits Of(Vec a, Vec b) {
        return column::Mask(a != b) & ~column::IsNull(a) & ~column::IsNull(b);
    }
};
struct HoldsLess {
    static Bits Of(Vec a, Vec b) { return column::Mask(a < b); }
};
struct HoldsGreater {
    static Bits Of(Vec a, Vec b) { return column::Mask(a > b); }
};
struct HoldsLessOrEqual {
    static Bits Of(Vec a, Vec b) { return column::Mask(a <= b); }
};
struct HoldsGreaterOrEqual {
    static Bits Of(Vec a, Vec b) { return column::Mask(a >= b); }
};

// taken = within & holds; remaining (when asked) = open & ~taken. `within` is `open` for the
// first comparison, and the first one's result for the second.
template <typename Holds, typename Right>
void TestLoop(const double* left, Right right, std::size_t lanes, const std::int64_t* open,
              const std::int64_t* within, std::int64_t* taken, std::int64_t* remaining) {
    for (std::size_t i = 0; i < lanes; i += kLanes) {
        const Bits holds =
            Holds::Of(column::Load(left + i), right(i)) & column::LoadBits(within + i);
        column::SaveBits(taken + i, holds);
        if (remaining != nullptr) {
            column::SaveBits(remaining + i, column::LoadBits(open + i) & ~holds);
        }
    }
}

} // namespace

void Machine::Test(OpCode comparison, std::uint32_t a, std::uint32_t b, std::size_t lanes,
                   const std::int64_t* open, const std::int64_t* within, std::int64_t* taken,
                   std::int64_t* remaining) {
    const double* left = Values(a);
    const auto test = [&](auto holds) {
        WithRight(m_script.slots[b], Values(b), [&](auto rightAt) {
            TestLoop<decltype(holds)>(left, rightAt, lanes, open, within, taken, remaining);
        });
    };
    switch (comparison) {
    case OpCode::kEqual:
        return test(HoldsEqual{});
    case OpCode::kNotEqual:
        return test(HoldsNotEqual{});
    case OpCode::kLess:
        return test(HoldsLess{});
    case OpCode::kGreater:
        return test(HoldsGreater{});
    case OpCode::kLessOrEqual:
        return test(HoldsLessOrEqual{});
    default:
        return test(HoldsGreaterOrEqual{});
    }
}

void Machine::Store(const Instruction& instruction, std::size_t lanes, std::size_t depth) {
    const double* source = Values(instruction.a);
    const std::int64_t* sourceEmpty = EmptyFlags(instruction.a);
    double* target = Values(instruction.dst);
    std::int64_t* targetEmpty = Empty(instruction.dst);
    if (depth == 0) {
        std::copy_n(source, lanes, target);
        std::copy_n(sourceEmpty, lanes, targetEmpty);
        return;
    }
    const std::int64_t* mask = CurrentMask(depth);
    for (std::size_t i = 0; i < lanes; i += kLanes) {
        const Bits m = column::LoadBits(mask + i);
        column::Save(target + i,
                     column::Select(m, column::Load(source + i), column::Load(target + i)));
        column::SaveBits(targetEmpty + i, (column::LoadBits(sourceEmpty + i) & m) |
                                              (column::LoadBits(targetEmpty + i) & ~m));
    }
}

void Machine::Evaluate(const std::vector<const Column*>& inputs, std::size_t count,
                       Column& output) {
    output.resize(count);
    for (std::size_t offset = 0; offset < count; offset += kChunk) {
        const std::size_t length = std::min(kChunk, count - offset);
        if (!Run(inputs, offset, length, false, output)) {
            for (std::size_t feature = offset; feature < offset + length; ++feature) {
                Run(inputs, feature, 1, true, output);
            }
        }
    }
}

bool Machine::Run(const std::vector<const Column*>& inputs, std::size_t offset, std::size_t count,
                  bool scalar, Column& output) {
    // Whole vectors; the lanes past the features are outside every mask.
    const std::size_t lanes = (count + kLanes - 1) / kLanes * kLanes;
    std::int64_t* top = CurrentMask(0);
    std::fill_n(top, count, kAll);
    std::fill(top + count, top + lanes, 0);
    LoadFields(inputs, offset, count, lanes);
    ResetVariables(lanes);
    if (!Execute(lanes, scalar)) {
        return false;
    }
    SaveResult(offset, count, output);
    return true;
}

void Machine::LoadFields(const std::vector<const Column*>& inputs, std::size_t offset,
                         std::size_t count, std::size_t lanes) {
    for (std::uint32_t slot = 0; slot < m_script.slots.size(); ++slot) {
        const Slot& description = m_script.slots[slot];
        if (description.kind == SlotKind::kField) {
            const Column& input = *inputs[description.field];
            const double* values = input.values.data() + offset;
            const std::uint8_t* isNull = input.isNull.data() + offset;
            double* target = Values(slot);
            const std::size_t whole = count / kLanes * kLanes;
            for (std::size_t i = 0; i < whole; i += kLanes) {
                const Bits null{isNull[i] != 0 ? kAll : 0, isNull[i + 1] != 0 ? kAll : 0};
                column::Save(target + i, column::Select(null, column::Splat(kNullValue),
                                                        column::Load(values + i)));
            }
            for (std::size_t i = whole; i < count; ++i) {
                target[i] = isNull[i] != 0 ? kNullValue : values[i];
            }
            std::fill(target + count, target + lanes, 0.0);
        }
    }
}

void Machine::ResetVariables(std::size_t lanes) {
    // Each feature runs the script afresh: every variable starts Empty (only those where it
    // shows: the others are written whole before any read).
    for (const std::uint32_t slot : m_script.resetSlots) {
        std::fill_n(Values(slot), lanes, 0.0);
        std::fill_n(Empty(slot), lanes, kAll);
    }
}

bool Machine::Execute(std::size_t lanes, bool scalar) {
    std::size_t depth = 0;
    const std::vector<Instruction>& code = m_script.code;
    std::size_t pc = 0;
    while (pc < code.size()) {
        const Instruction& instruction = code[pc];
        // The control op codes are the last ones.
        if (instruction.op >= OpCode::kIfBegin) {
            pc = SkipsBranch(instruction, lanes, depth) ? instruction.jump : pc + 1;
            continue;
        }
        const int failed = Compute(instruction, lanes, depth);
        if (failed != kNoError) {
            if (scalar) {
                ThrowRuntimeError(failed);
            }
            return false;
        }
        ++pc;
    }
    return true;
}

int Machine::Compute(const Instruction& instruction, std::size_t lanes, std::size_t depth) {
    const std::int64_t* mask = CurrentMask(depth);
    switch (instruction.op) {
    case OpCode::kAdd:
        return Vector<column::Add>(instruction, lanes, mask);
    case OpCode::kSubtract:
        return Vector<column::Subtract>(instruction, lanes, mask);
    case OpCode::kMultiply:
        return Vector<column::Multiply>(instruction, lanes, mask);
    case OpCode::kDivide:
        return Vector<column::Divide>(instruction, lanes, mask);
    case OpCode::kEqual:
        return Vector<column::Equal>(instruction, lanes, mask);
    case OpCode::kNotEqual:
        return Vector<column::NotEqual>(instruction, lanes, mask);
    case OpCode::kLess:
        return Vector<column::Less>(instruction, lanes, mask);
    case OpCode::kGreater:
        return Vector<column::Greater>(instruction, lanes, mask);
    case OpCode::kLessOrEqual:
        return Vector<column::LessOrEqual>(instruction, lanes, mask);
    case OpCode::kGreaterOrEqual:
        return Vector<column::GreaterOrEqual>(instruction, lanes, mask);
    case OpCode::kLogicalAnd:
        return Vector<column::LogicalAnd>(instruction, lanes, mask);
    case OpCode::kLogicalOr:
        return Vector<column::LogicalOr>(instruction, lanes, mask);
    case OpCode::kLogicalNot:
        return Vector<column::LogicalNot>(instruction, lanes, mask);
    case OpCode::kNegate:
        return Vector<column::Negate>(instruction, lanes, mask);
    case OpCode::kIntegerDivide:
        return PerFeature<IntegerDivideOp>(instruction, lanes, mask);
    case OpCode::kMod:
        return PerFeature<ModOp>(instruction, lanes, mask);
    case OpCode::kPower:
        return PerFeature<PowerOp>(instruction, lanes, mask);
    case OpCode::kAnd:
        return PerFeature<AndOp>(instruction, lanes, mask);
    case OpCode::kOr:
        return PerFeature<OrOp>(instruction, lanes, mask);
    case OpCode::kNot:
        return PerFeature<NotOp>(instruction, lanes, mask);
    case OpCode::kStore:
        Store(instruction, lanes, depth);
        return kNoError;
    default:
        return kNoError;
    }
}

bool Machine::SkipsBranch(const Instruction& instruction, std::size_t lanes, std::size_t& depth) {
    const std::int64_t* mask = CurrentMask(depth);
    switch (instruction.op) {
    case OpCode::kIfBegin: {
        const double* condition = Values(instruction.a);
        std::int64_t* current = CurrentMask(depth + 1);
        std::int64_t* remaining = RemainingMask(depth + 1);
        for (std::size_t i = 0; i < lanes; i += kLanes) {
            const Bits taken = column::IsTrue(column::Load(condition + i));
            const Bits open = column::LoadBits(mask + i);
            column::SaveBits(current + i, open & taken);
            column::SaveBits(remaining + i, open & ~taken);
        }
        ++depth;
        return !AnySet(current, lanes);
    }
    case OpCode::kIfTest: {
        std::int64_t* current = CurrentMask(depth + 1);
        std::int64_t* remaining = RemainingMask(depth + 1);
        if (instruction.test2 == OpCode::kIfTest) {
            Test(instruction.test, instruction.a, instruction.b, lanes, mask, mask, current,
                 remaining);
        } else {
            Test(instruction.test, instruction.a, instruction.b, lanes, mask, mask, current,
                 nullptr);
            Test(instruction.test2, instruction.c, instruction.d, lanes, mask, current, current,
                 remaining);
        }
        ++depth;
        return !AnySet(current, lanes);
    }
    case OpCode::kElseIfPrep:
    case OpCode::kElse: {
        const std::int64_t* remaining = RemainingMask(depth);
        if (!AnySet(remaining, lanes)) {
            return true;
        }
        std::copy_n(remaining, lanes, CurrentMask(depth));
        return false;
    }
    case OpCode::kElseIfTest: {
        const double* condition = Values(instruction.a);
        std::int64_t* current = CurrentMask(depth);
        std::int64_t* remaining = RemainingMask(depth);
        for (std::size_t i = 0; i < lanes; i += kLanes) {
            const Bits taken = column::IsTrue(column::Load(condition + i));
            const Bits open = column::LoadBits(remaining + i);
            column::SaveBits(current + i, open & taken);
            column::SaveBits(remaining + i, open & ~taken);
        }
        return !AnySet(current, lanes);
    }
    case OpCode::kEndIf:
        --depth;
        return false;
    default:
        return false;
    }
}

void Machine::SaveResult(std::size_t offset, std::size_t count, Column& output) {
    const double* result = Values(m_script.resultSlot);
    const std::int64_t* empty = EmptyFlags(m_script.resultSlot);
    double* values = output.values.data() + offset;
    std::uint8_t* isNull = output.isNull.data() + offset;
    // Null and Empty both leave the field Null.
    const std::size_t whole = count / kLanes * kLanes;
    for (std::size_t i = 0; i < whole; i += kLanes) {
        const Vec r = column::Load(result + i);
        const Bits null = column::IsNull(r) | column::LoadBits(empty + i);
        column::Save(values + i, column::Select(null, column::Splat(0.0), r));
        isNull[i] = static_cast<std::uint8_t>(null[0] & 1);
        isNull[i + 1] = static_cast<std::uint8_t>(null[1] & 1);
    }
    for (std::size_t i = whole; i < count; ++i) {
        const bool null = IsNullValue(result[i]) || empty[i] != 0;
        isNull[i] = null ? 1 : 0;
        values[i] = null ? 0.0 : result[i];
    }
}

} // namespace quorel::host::script
