// SPDX-License-Identifier: MIT
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"

#include <GL/GLErrors.h>

#include <deque>

namespace Velmora::Kvz {

namespace {

/// The error taken when GL has these pending, in this order.
unsigned int taken(std::deque<GLenum> pending)
{
    GLCallRecorder<&epoxy_glGetError> recorder;
    recorder.replacement = [&]() -> GLenum {
        if (pending.empty())
            return GL_NO_ERROR;
        const GLenum error = pending.front();
        pending.pop_front();
        return error;
    };
    const unsigned int error = Velmora::Kvz::takeGLErrors();
    EXPECT_TRUE(pending.empty()) << "all are taken";
    return error;
}

} // namespace

using GLErrorsTest = GLTest;

TEST_F(GLErrorsTest, theGravestIsGiven)
{
    EXPECT_EQ(taken({}), GLenum(GL_NO_ERROR));
    EXPECT_EQ(taken({GL_INVALID_ENUM, GL_INVALID_VALUE}), GLenum(GL_INVALID_ENUM));
    EXPECT_EQ(taken({GL_INVALID_ENUM, GL_OUT_OF_MEMORY, GL_INVALID_VALUE}), GLenum(GL_OUT_OF_MEMORY));
}

TEST_F(GLErrorsTest, aContextThatReportsErrorsWithoutEndIsLeftAlone)
{
    GLCallRecorder<&epoxy_glGetError> recorder;
    recorder.replacement = [] { return GLenum(0x0507); }; // GL_CONTEXT_LOST
    EXPECT_EQ(Velmora::Kvz::takeGLErrors(), 0x0507u);
    EXPECT_LT(recorder.calls.size(), 100u);
}

} // namespace Velmora::Kvz
