#pragma once

#include <array>
#include <cstdint>

namespace quorel::criterion {

// The shape of a fuzzy number; 0 until a shape button is clicked.
enum FuzzyNumberKind : std::int16_t {
    kNoKind = 0,
    Singleton = 1,
    Triangle = 2,
    RisingRamp = 3,
    FallingRamp = 4,
    Trapezoid = 5,
};

inline bool IsShapeKind(int kind) {
    return kind >= Singleton && kind <= Trapezoid;
}

// What a kind shows in the definition dialog.
struct KindInfo {
    std::array<bool, 4> boxes;    // Txt_val_a .. Txt_val_d enabled and visible
    std::int16_t buttonBitmap;    // 60 x 60 face of cmd_nf_k
    std::int16_t diagramBitmap;   // 280 x 187 picture shown in Picture1
    std::int16_t explanationText; // text id shown in Txt_explique
};

// The table of the five kinds; kind must be 1 to 5.
const KindInfo& InfoOfKind(int kind);

} // namespace quorel::criterion
