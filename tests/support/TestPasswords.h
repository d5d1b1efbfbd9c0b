#pragma once

#include <QString>

// The passwords the server tests give quotesd's seeded accounts (init sets the administrator's,
// startWithViewer the viewer's).
inline const QString kAdminPassword = QStringLiteral("admin-password-1");
inline const QString kViewerPassword = QStringLiteral("viewer-password-1");
