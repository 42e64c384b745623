#include "host/script/Machine.h"

#include "host/script/Operations.h"
#include "util/Error.h"

#include <algorithm>
#include <functional>

namespace quorel::host::script {

namespace {

const char* const kSource = "Field calculator script";

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

// Any feature in the mask? Also what decides whether a branch runs at all.
bool AnySet(const std::uint8_t* mask, std::size_t count) {
    std::uint8_t any = 0;
    for (std::size_t i = 0; i < count; ++i) {
        any |= mask[i];
    }
    return any != 0;
}

} // namespace

Machine::Machine(const CompiledScript& script)
    : m_script(script), m_values(script.slots.size() * kChunk),
      m_tags(script.slots.size() * kChunk), m_masks(2 * (script.maxDepth + 1) * kChunk),
      m_read(script.slots.size()) {
    for (std::uint32_t slot = 0; slot < script.slots.size(); ++slot) {
        m_read[slot] = Values(slot);
        const Slot& description = script.slots[slot];
        if (description.kind == SlotKind::kConstant) {
            std::fill_n(Values(slot), kChunk, description.value);
            std::fill_n(Tags(slot), kChunk, description.tag);
        }
    }
    std::fill_n(CurrentMask(0), kChunk, std::uint8_t{1});
}

template <typename Op>
int Machine::Binary(const Instruction& instruction, std::size_t count, const std::uint8_t* mask) {
    const double* left = m_read[instruction.a];
    const double* right = m_read[instruction.b];
    const std::uint8_t* leftTags = Tags(instruction.a);
    const std::uint8_t* rightTags = Tags(instruction.b);
    double* result = Values(instruction.dst);
    std::uint8_t* resultTags = Tags(instruction.dst);
    int failed = 0;
    for (std::size_t i = 0; i < count; ++i) {
        int error = kNoError;
        Op::Apply(left[i], leftTags[i], right[i], rightTags[i], result[i], resultTags[i], error);
        failed |= mask[i] != 0 ? error : 0;
    }
    return failed;
}

template <typename Op>
int Machine::Unary(const Instruction& instruction, std::size_t count, const std::uint8_t* mask) {
    const double* operand = m_read[instruction.a];
    const std::uint8_t* operandTags = Tags(instruction.a);
    double* result = Values(instruction.dst);
    std::uint8_t* resultTags = Tags(instruction.dst);
    int failed = 0;
    for (std::size_t i = 0; i < count; ++i) {
        int error = kNoError;
        Op::Apply(operand[i], operandTags[i], result[i], resultTags[i], error);
        failed |= mask[i] != 0 ? error : 0;
    }
    return failed;
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
    for (std::uint32_t slot = 0; slot < m_script.slots.size(); ++slot) {
        const Slot& description = m_script.slots[slot];
        if (description.kind == SlotKind::kField) {
            const Column& column = *inputs[description.field];
            m_read[slot] = column.values.data() + offset;
            // Any non-zero byte means Null; the operations test one bit.
            const std::uint8_t* isNull = column.isNull.data() + offset;
            std::uint8_t* tags = Tags(slot);
            for (std::size_t i = 0; i < count; ++i) {
                tags[i] = isNull[i] != 0 ? kNull : kNumber;
            }
        } else if (description.kind == SlotKind::kVariable) {
            // Each feature runs the script afresh: every variable starts Empty.
            std::fill_n(Values(slot), count, 0.0);
            std::fill_n(Tags(slot), count, std::uint8_t{kEmpty});
        }
    }

    std::size_t depth = 0;
    const std::vector<Instruction>& code = m_script.code;
    std::size_t pc = 0;
    while (pc < code.size()) {
        const Instruction& instruction = code[pc];
        const std::uint8_t* mask = CurrentMask(depth);
        int failed = 0;
        switch (instruction.op) {
        case OpCode::kAdd:
            failed = Binary<AddOp>(instruction, count, mask);
            break;
        case OpCode::kSubtract:
            failed = Binary<SubtractOp>(instruction, count, mask);
            break;
        case OpCode::kMultiply:
            failed = Binary<MultiplyOp>(instruction, count, mask);
            break;
        case OpCode::kDivide:
            failed = Binary<DivideOp>(instruction, count, mask);
            break;
        case OpCode::kIntegerDivide:
            failed = Binary<IntegerDivideOp>(instruction, count, mask);
            break;
        case OpCode::kMod:
            failed = Binary<ModOp>(instruction, count, mask);
            break;
        case OpCode::kPower:
            failed = Binary<PowerOp>(instruction, count, mask);
            break;
        case OpCode::kEqual:
            failed = Binary<CompareOp<std::equal_to<>>>(instruction, count, mask);
            break;
        case OpCode::kNotEqual:
            failed = Binary<CompareOp<std::not_equal_to<>>>(instruction, count, mask);
            break;
        case OpCode::kLess:
            failed = Binary<CompareOp<std::less<>>>(instruction, count, mask);
            break;
        case OpCode::kGreater:
            failed = Binary<CompareOp<std::greater<>>>(instruction, count, mask);
            break;
        case OpCode::kLessOrEqual:
            failed = Binary<CompareOp<std::less_equal<>>>(instruction, count, mask);
            break;
        case OpCode::kGreaterOrEqual:
            failed = Binary<CompareOp<std::greater_equal<>>>(instruction, count, mask);
            break;
        case OpCode::kAnd:
            failed = Binary<AndOp>(instruction, count, mask);
            break;
        case OpCode::kOr:
            failed = Binary<OrOp>(instruction, count, mask);
            break;
        case OpCode::kNegate:
            failed = Unary<NegateOp>(instruction, count, mask);
            break;
        case OpCode::kNot:
            failed = Unary<NotOp>(instruction, count, mask);
            break;
        case OpCode::kStore: {
            const double* source = m_read[instruction.a];
            const std::uint8_t* sourceTags = Tags(instruction.a);
            double* target = Values(instruction.dst);
            std::uint8_t* targetTags = Tags(instruction.dst);
            if (depth == 0) {
                std::copy_n(source, count, target);
                std::copy_n(sourceTags, count, targetTags);
            } else {
                for (std::size_t i = 0; i < count; ++i) {
                    target[i] = mask[i] != 0 ? source[i] : target[i];
                    targetTags[i] = mask[i] != 0 ? sourceTags[i] : targetTags[i];
                }
            }
            break;
        }
        case OpCode::kIfBegin: {
            const double* condition = m_read[instruction.a];
            const std::uint8_t* conditionTags = Tags(instruction.a);
            std::uint8_t* current = CurrentMask(depth + 1);
            std::uint8_t* remaining = RemainingMask(depth + 1);
            for (std::size_t i = 0; i < count; ++i) {
                const auto taken =
                    static_cast<std::uint8_t>(IsTrue(condition[i], conditionTags[i]));
                current[i] = static_cast<std::uint8_t>(mask[i] & taken);
                remaining[i] = static_cast<std::uint8_t>(mask[i] & (taken ^ 1U));
            }
            ++depth;
            if (!AnySet(current, count)) {
                pc = instruction.jump;
                continue;
            }
            break;
        }
        case OpCode::kElseIfPrep:
        case OpCode::kElse: {
            const std::uint8_t* remaining = RemainingMask(depth);
            if (!AnySet(remaining, count)) {
                pc = instruction.jump;
                continue;
            }
            std::copy_n(remaining, count, CurrentMask(depth));
            break;
        }
        case OpCode::kElseIfTest: {
            const double* condition = m_read[instruction.a];
            const std::uint8_t* conditionTags = Tags(instruction.a);
            std::uint8_t* current = CurrentMask(depth);
            std::uint8_t* remaining = RemainingMask(depth);
            for (std::size_t i = 0; i < count; ++i) {
                const auto taken =
                    static_cast<std::uint8_t>(IsTrue(condition[i], conditionTags[i]));
                const std::uint8_t open = remaining[i];
                current[i] = static_cast<std::uint8_t>(open & taken);
                remaining[i] = static_cast<std::uint8_t>(open & (taken ^ 1U));
            }
            if (!AnySet(current, count)) {
                pc = instruction.jump;
                continue;
            }
            break;
        }
        case OpCode::kEndIf:
            --depth;
            break;
        }
        if (failed != 0) {
            if (scalar) {
                ThrowRuntimeError(failed);
            }
            return false;
        }
        ++pc;
    }

    const double* result = m_read[m_script.resultSlot];
    const std::uint8_t* resultTags = Tags(m_script.resultSlot);
    double* values = output.values.data() + offset;
    std::uint8_t* isNull = output.isNull.data() + offset;
    for (std::size_t i = 0; i < count; ++i) {
        // Null and Empty both leave the field Null.
        isNull[i] = resultTags[i] != kNumber ? 1 : 0;
        values[i] = resultTags[i] != kNumber ? 0.0 : result[i];
    }
    return true;
}

} // namespace quorel::host::script
