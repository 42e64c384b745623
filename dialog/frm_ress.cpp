#include "dialog/frm_ress.h"

#include "dialog/Pictures.h"

#include <QLabel>

namespace quorel::dialog {

frm_ress::frm_ress(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("frm_ress"));
    Picture2 = new QLabel(this);
    Picture2->setObjectName(QStringLiteral("Picture2"));
    Picture2->setPixmap(CommandPicture());
    Picture2->setFixedSize(kCommandPictureWidth, kCommandPictureHeight);
    setFixedSize(kCommandPictureWidth, kCommandPictureHeight);
}

} // namespace quorel::dialog
