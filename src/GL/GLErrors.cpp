// SPDX-License-Identifier: MIT
#include <GL/GLErrors.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

unsigned int takeGLErrors()
{
    GLenum gravest = GL_NO_ERROR;
    // A lost context reports errors without end.
    for (int i = 0; i < 16; ++i) {
        const GLenum error = glGetError();
        if (error == GL_NO_ERROR)
            break;
        if (gravest == GL_NO_ERROR || error == GL_OUT_OF_MEMORY)
            gravest = error;
    }
    return gravest;
}

} // namespace Velmora::Kvz
