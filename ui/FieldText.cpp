#include "ui/FieldText.h"

#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTextCursor>
#include <QTextDocument>

#include <algorithm>

namespace quillon::ui {

void showText(QLineEdit* edit, const QString& text)
{
    if (edit->hasFocus() && edit->isModified())
        return;
    if (edit->text() == text)
        return;
    const int caret = edit->cursorPosition();
    edit->setText(text);
    // A long text shows its beginning unless the user is at work in it.
    edit->setCursorPosition(edit->hasFocus() ? std::min(caret, int(text.size())) : 0);
}

void showText(QPlainTextEdit* edit, const QString& text)
{
    if (edit->hasFocus() && edit->document()->isModified())
        return;
    if (edit->toPlainText() == text)
        return;
    const int caret = edit->textCursor().position();
    edit->setPlainText(text);
    edit->document()->setModified(false);
    if (edit->hasFocus()) {
        auto cursor = edit->textCursor();
        cursor.setPosition(std::min(caret, int(edit->document()->characterCount()) - 1));
        edit->setTextCursor(cursor);
    }
}

bool isTypedInto(const QLineEdit* edit)
{
    return edit->isModified();
}

bool isTypedInto(const QPlainTextEdit* edit)
{
    return edit->document()->isModified();
}

void markCommitted(QLineEdit* edit)
{
    edit->setModified(false);
}

void markCommitted(QPlainTextEdit* edit)
{
    edit->document()->setModified(false);
}

} // namespace quillon::ui
