#include "ui/TypedSecret.h"

#include <QLineEdit>

namespace quillon::ui {

void emptyField(QLineEdit* field)
{
    field->setText(QString());
}

kdbx::SecureBytes takeTyped(QLineEdit* field)
{
    QString text = field->text();
    emptyField(field);
    QByteArray utf8 = text.toUtf8();
    auto bytes = kdbx::SecureBytes::fromText(std::string_view(utf8.constData(), static_cast<std::size_t>(utf8.size())));
    kdbx::secureWipe(utf8.data(), static_cast<std::size_t>(utf8.size()));
    text.fill(QChar(u'\0'));
    return bytes;
}

} // namespace quillon::ui
