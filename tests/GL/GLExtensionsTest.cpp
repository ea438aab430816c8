// SPDX-License-Identifier: MIT
#include "support/GLTest.h"

#include <GL/GLExtensions.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

using GLExtensionsTest = GLTest;

} // namespace

TEST_F(GLExtensionsTest, takesNamesWithAndWithoutThePrefix)
{
    GLint count = 0;
    glGetIntegerv(GL_NUM_EXTENSIONS, &count);
    ASSERT_GT(count, 0);
    for (GLint i = 0; i < count; ++i) {
        const QByteArray name(reinterpret_cast<const char *>(glGetStringi(GL_EXTENSIONS, GLuint(i))));
        EXPECT_TRUE(hasGLExtension(name.constData())) << name.constData();
        ASSERT_TRUE(name.startsWith("GL_"));
        EXPECT_TRUE(hasGLExtension(name.constData() + 3)) << name.constData();
    }
}

TEST_F(GLExtensionsTest, refusesWhatIsNotAnExtension)
{
    for (const char *name : {static_cast<const char *>(nullptr), "", "GL_", "GL_KVZ_no_such_thing", "KVZ_no_such_thing",
             "ARB_shader", "GL_GL_ARB_shader_image_load_store"})
        EXPECT_FALSE(hasGLExtension(name)) << (name ? name : "null");
}

TEST_F(GLExtensionsTest, hasNoneWithoutAContext)
{
    ASSERT_TRUE(hasGLExtension("ARB_sync"));
    context().doneCurrent();
    EXPECT_FALSE(hasGLExtension("ARB_sync"));
}

} // namespace Velmora::Kvz
