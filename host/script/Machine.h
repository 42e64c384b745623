#pragma once

#include "host/script/Code.h"
#include "host/script/ScriptEngine.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quorel::host::script {

// Runs a compiled script over columns, a chunk of features at a time: each instruction loops
// over the chunk, Ifs narrow a mask, and a branch that no feature of the chunk takes is skipped.
// The working storage is the machine's own, so one compiled script can run on several threads.
class Machine {
public:
    explicit Machine(const CompiledScript& script);

    void Evaluate(const std::vector<const Column*>& inputs, std::size_t count, Column& output);

    // Features per chunk: small enough for the slots to stay in the processor's cache.
    static constexpr std::size_t kChunk = 512;

private:
    // In batch mode a failing feature makes Run return false; the chunk is then run again one
    // feature at a time (scalar mode), so that the error is the one of the first failing feature,
    // as if each feature ran the script alone.
    bool Run(const std::vector<const Column*>& inputs, std::size_t offset, std::size_t count,
             bool scalar, Column& output);

    template <typename Op>
    int Binary(const Instruction& instruction, std::size_t count, const std::uint8_t* mask);
    template <typename Op>
    int Unary(const Instruction& instruction, std::size_t count, const std::uint8_t* mask);

    double* Values(std::uint32_t slot) { return &m_values[slot * kChunk]; }
    std::uint8_t* Tags(std::uint32_t slot) { return &m_tags[slot * kChunk]; }
    std::uint8_t* CurrentMask(std::size_t depth) { return &m_masks[2 * depth * kChunk]; }
    std::uint8_t* RemainingMask(std::size_t depth) { return &m_masks[(2 * depth + 1) * kChunk]; }

    const CompiledScript& m_script;
    std::vector<double> m_values;
    std::vector<std::uint8_t> m_tags;
    std::vector<std::uint8_t> m_masks;
    // Where each slot is read from: its own storage, or the input column for a field.
    std::vector<const double*> m_read;
};

} // namespace quorel::host::script
