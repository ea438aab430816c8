// SPDX-License-Identifier: MIT
#pragma once

#include <Import/ModelImporter.h>

#include <gtest/gtest.h>

namespace Velmora::Kvz {

/// The scene of a file that is to be read; fails the test with the reason where it is not.
inline ImportedScene importScene(const QString &file, const ImportOptions &options = ImportOptions())
{
    ImportedScene scene;
    QString error;
    EXPECT_TRUE(importModel(file, options, &scene, &error)) << qPrintable(error);
    return scene;
}

/// Why a file is refused; fails the test where it is read.
inline QString refusal(const QString &file, const ImportOptions &options = ImportOptions())
{
    ImportedScene scene;
    scene.warnings.append(QStringLiteral("untouched"));
    QString error;
    EXPECT_FALSE(importModel(file, options, &scene, &error));
    EXPECT_EQ(scene.warnings, QStringList(QStringLiteral("untouched")));
    EXPECT_TRUE(error.startsWith(file + QStringLiteral(": "))) << qPrintable(error);
    EXPECT_FALSE(error.contains(QLatin1Char('\n'))) << qPrintable(error);
    return error.mid(file.size() + 2);
}

} // namespace Velmora::Kvz
