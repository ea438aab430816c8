// SPDX-License-Identifier: MIT
#pragma once

#include "Image.h"
#include "LogCapture.h"

#include <Host/HeadlessContext.h>

#include <gtest/gtest.h>

#include <memory>

namespace Velmora::Kvz {

/// A test with a current OpenGL context, the same one for all tests of the process. A machine that gives none fails.
///
/// A test fails when it leaves a GL error, a warning or critical log line that it did not take from `log`, or a reference to
/// a texture of the pool.
class GLTest : public ::testing::Test
{
protected:
    /// The members of a test have released what they held by now.
    ~GLTest() override;

    void SetUp() override;
    void TearDown() override;

    static HeadlessContext &context();

    /// The GL errors that the test expects to have caused: their codes. They are cleared from GL and the log.
    QVector<unsigned int> takeGLErrors();

    LogCapture log;
};

/// One value of GL's state.
int glInteger(unsigned int name);
bool glFlag(unsigned int name);

} // namespace Velmora::Kvz

/// Lets gtest print strings and lists of them.
void PrintTo(const QString &text, std::ostream *stream);
