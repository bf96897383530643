// ui/FieldText.h: moving field texts between the document (UTF-8) and the editors (QString).
#pragma once

#include "kdbx/SecureBytes.h"

#include <QByteArray>
#include <QString>

#include <string_view>

class QLineEdit;
class QPlainTextEdit;

namespace quillon::ui {

inline QString fromUtf8(std::string_view text)
{
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

// Hands the text to `use` as UTF-8 and overwrites that copy afterwards: it may be a password.
template <class Use>
decltype(auto) withUtf8(const QString& text, Use&& use)
{
    struct Wiped {
        QByteArray bytes;
        ~Wiped() { kdbx::secureWipe(bytes.data(), std::size_t(bytes.size())); }
    } utf8{text.toUtf8()};
    return use(std::string_view(utf8.bytes.constData(), std::size_t(utf8.bytes.size())));
}

// Shows the text unless the user has typed into the focused editor since it was last shown; a focused
// editor keeps its caret. Setting text also drops the editor's own undo history, and with it old secrets.
void showText(QLineEdit* edit, const QString& text);
void showText(QPlainTextEdit* edit, const QString& text);
// Typed into since last shown or committed.
bool isTypedInto(const QLineEdit* edit);
bool isTypedInto(const QPlainTextEdit* edit);
void markCommitted(QLineEdit* edit);
void markCommitted(QPlainTextEdit* edit);

} // namespace quillon::ui
