// ui/TypedSecret.h: taking a secret out of a password field without leaving a copy in it.
#pragma once

#include "kdbx/SecureBytes.h"

class QLineEdit;

namespace quillon::ui {

// Empties the field and its undo history, which holds every character typed; clear() would keep it.
void emptyField(QLineEdit* field);
// The field's text as bytes; the field is emptied at once and the text's last copy overwritten.
kdbx::SecureBytes takeTyped(QLineEdit* field);

} // namespace quillon::ui
