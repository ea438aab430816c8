// SPDX-License-Identifier: MIT
#pragma once

#include "Image.h"
#include "LogCapture.h"

#include <Host/HeadlessContext.h>

#include <gtest/gtest.h>

#include <memory>

namespace Velmora::Kvz {

/// A test with a current OpenGL context, shared by all tests of the process. It fails on a machine without one.
///
/// A test fails if it leaves behind a GL error, a warning or critical log line that it did not take from `log`, or a
/// reference to a texture of the pool.
class GLTest : public ::testing::Test
{
protected:
    /// The members of a test have released their references by now.
    ~GLTest() override;

    void SetUp() override;
    void TearDown() override;

    static HeadlessContext &context();

    /// The GL errors that the test expects, by code. They are removed from GL and from the log.
    QVector<unsigned int> takeGLErrors();

    LogCapture log;
};

/// One integer of GL's state.
int glInteger(unsigned int name);
bool glFlag(unsigned int name);

} // namespace Velmora::Kvz

/// Lets gtest print strings and lists of them.
void PrintTo(const QString &text, std::ostream *stream);
