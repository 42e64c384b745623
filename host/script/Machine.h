#pragma once

#include "host/script/Code.h"
#include "host/script/ScriptEngine.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quorel::host::script {

// Runs a compiled script over columns, a chunk of features at a time: each instruction is one
// vector loop over the chunk, an If narrows a mask, and a branch that no feature of the chunk
// takes is skipped. The working storage is the machine's own, so one compiled script can run on
// several threads, each with its machine.
class Machine {
public:
    explicit Machine(const CompiledScript& script);

    void Evaluate(const std::vector<const Column*>& inputs, std::size_t count, Column& output);

    // Features per chunk: small enough for the slots to stay in the processor's cache.
    static constexpr std::size_t kChunk = 512;

private:
    // In batch mode a failing feature makes Run return false; the chunk is then run again one
    // feature at a time (scalar mode), so that the error is the one of the first failing
    // feature, as if each feature ran the script alone.
    bool Run(const std::vector<const Column*>& inputs, std::size_t offset, std::size_t count,
             bool scalar, Column& output);
    // The steps of a run over one chunk: the fields' values into their slots, the variables
    // Empty, the code, the result slot into the output.
    void LoadFields(const std::vector<const Column*>& inputs, std::size_t offset, std::size_t count,
                    std::size_t lanes);
    void ResetVariables(std::size_t lanes);
    bool Execute(std::size_t lanes, bool scalar);
    void SaveResult(std::size_t offset, std::size_t count, Column& output);
    // One computing instruction (or kStore) under the current mask: 0, or an error number.
    int Compute(const Instruction& instruction, std::size_t lanes, std::size_t depth);
    // One control instruction (kIfBegin to kEndIf, the last op codes): whether to jump.
    bool SkipsBranch(const Instruction& instruction, std::size_t lanes, std::size_t& depth);

    // Run one instruction over `lanes` features (a multiple of the vector width); 0, or the
    // error number of a feature of the mask.
    template <typename Op>
    int Vector(const Instruction& instruction, std::size_t lanes, const std::int64_t* mask);
    template <typename Op>
    int PerFeature(const Instruction& instruction, std::size_t lanes, const std::int64_t* mask);
    void Store(const Instruction& instruction, std::size_t lanes, std::size_t depth);
    // taken = within & (a comparison b) over the lanes; remaining, unless null, = open & ~taken.
    void Test(OpCode comparison, std::uint32_t a, std::uint32_t b, std::size_t lanes,
              const std::int64_t* open, const std::int64_t* within, std::int64_t* taken,
              std::int64_t* remaining);
    // Where the "still Empty" flags of a slot's values come from: the variable's own flags, or
    // none or all for other slots.
    const std::int64_t* EmptyFlags(std::uint32_t slot) const;

    double* Values(std::uint32_t slot) { return &m_values[slot * kChunk]; }
    std::int64_t* Empty(std::uint32_t slot) { return &m_empty[slot * kChunk]; }
    std::int64_t* CurrentMask(std::size_t depth) { return &m_masks[2 * depth * kChunk]; }
    std::int64_t* RemainingMask(std::size_t depth) { return &m_masks[(2 * depth + 1) * kChunk]; }

    const CompiledScript& m_script;
    std::vector<double> m_values;
    std::vector<std::int64_t> m_empty; // per variable and feature: all ones while Empty
    std::vector<std::int64_t> m_masks; // per If level: current and remaining features
    std::vector<std::int64_t> m_noFlags;
    std::vector<std::int64_t> m_allFlags;
};

} // namespace quorel::host::script
