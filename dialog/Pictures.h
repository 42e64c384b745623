#pragma once

// The component's bitmap resources, drawn by code: the faces of the five shape buttons
// (101-105, 60 x 60), the five shape diagrams (106-110, 280 x 187) and the command's picture
// (71 x 62) held by the hidden form frm_ress.

#include <QPixmap>

namespace quorel::dialog {

inline constexpr int kButtonFaceSize = 60;
inline constexpr int kDiagramWidth = 280;
inline constexpr int kDiagramHeight = 187;
inline constexpr int kCommandPictureWidth = 71;
inline constexpr int kCommandPictureHeight = 62;

// The bitmap resource of that number; a null pixmap for a number the component does not hold.
QPixmap LoadResPicture(int id);

// The picture of the command button (frm_ress's Picture2).
QPixmap CommandPicture();

} // namespace quorel::dialog
