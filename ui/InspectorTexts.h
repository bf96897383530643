// ui/InspectorTexts.h: every word the entry inspector and the history pop-up show, in one place.
#pragma once

#include <QString>

namespace quillon::ui::inspectorText {

inline const QString inspectorName = QStringLiteral("Entry");
inline const QString fieldsName = QStringLiteral("Entry fields");
inline const QString noEntry = QStringLiteral("No entry selected");
inline const QString title = QStringLiteral("Title");
inline const QString username = QStringLiteral("Username");
inline const QString password = QStringLiteral("Password");
inline const QString url = QStringLiteral("URL");
inline const QString oneTimePassword = QStringLiteral("One-time password");
inline const QString notes = QStringLiteral("Notes");
inline const QString expires = QStringLiteral("Expires");
inline const QString expiryDate = QStringLiteral("Expiry date");
inline const QString customFields = QStringLiteral("Custom Fields");
inline const QString attachments = QStringLiteral("Attachments");

// The name of a secret in "Show password", "Copy password"; the subtitle names it with a capital.
inline QString showSecret(const QString& lowerName) { return QStringLiteral("Show ") + lowerName; }
inline QString hideSecret(const QString& lowerName) { return QStringLiteral("Hide ") + lowerName; }
inline QString revealSecret(const QString& lowerName) { return QStringLiteral("Reveal ") + lowerName; }
inline QString copyItem(const QString& lowerName) { return QStringLiteral("Copy ") + lowerName; }
inline QString copied(const QString& name) { return name + QStringLiteral(" copied"); }

inline const QString openUrl = QStringLiteral("Open URL");
inline const QString created = QStringLiteral("Created ");
inline const QString lastModified = QStringLiteral("Last modified ");

inline const QString addField = QStringLiteral("Add Field");
inline const QString newFieldName = QStringLiteral("New Field");
inline const QString fieldName = QStringLiteral("Field name");
inline const QString fieldValue = QStringLiteral("Value of ");
inline const QString protectField = QStringLiteral("Protect");
inline const QString protectFieldTip = QStringLiteral("Protect ");
inline const QString removeField = QStringLiteral("Remove field ");
inline const QString fieldExists = QStringLiteral("A field with that name already exists.");
inline const QString fieldNameReserved = QStringLiteral("That name is kept for a standard field.");

inline const QString addAttachment = QStringLiteral("Add Attachment…");
inline const QString chooseAttachment = QStringLiteral("Add Attachment");
inline const QString saveAttachment = QStringLiteral("Save…");
inline const QString saveAttachmentTip = QStringLiteral("Save ");
inline const QString saveAttachmentTitle = QStringLiteral("Save Attachment");
inline const QString removeAttachment = QStringLiteral("Remove attachment ");
inline const QString attachmentSaved = QStringLiteral("Attachment saved");
inline const QString couldNotAdd = QStringLiteral("The attachment could not be added.");
inline const QString couldNotSave = QStringLiteral("The attachment could not be saved.");
inline const QString attachmentMissing = QStringLiteral("The attachment's content is missing from the database.");

inline QString historyTitle(int versions) { return QStringLiteral("History (%1)").arg(versions); }
inline const QString historyName = QStringLiteral("History");
inline const QString earlierVersion = QStringLiteral("Earlier version");
inline const QString versionHeading = QStringLiteral("Earlier version of ");
inline const QString restore = QStringLiteral("Restore");
inline const QString close = QStringLiteral("Close");
inline QString restoredFrom(const QString& when) { return QStringLiteral("Restored the version of ") + when; }
inline const QString restoredEarlier = QStringLiteral("Restored an earlier version");
inline const QString untitled = QStringLiteral("(untitled)");

} // namespace quillon::ui::inspectorText
