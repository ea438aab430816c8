// SPDX-License-Identifier: MIT
// What `kvz check` and `kvz render` say about a user's shader and the inputs for it.
#include "KvzRun.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <QtCore/QFile>

#include <gtest/gtest.h>

namespace Velmora::Kvz {

TEST(ShaderInputsTest, aMisspeltInputIsSaidByCheckAndByRender)
{
    const TemporaryFolder folder;
    folder.write("tint.frag",
        "#version 150\nuniform vec3 u_Tint;\nout vec4 o_Frame;\nvoid main()\n{\n    o_Frame = vec4(u_Tint, 1);\n}\n");
    const QString chain = folder.write("chain.json", R"({"passes": [
        {"name": "fill", "class": "ShaderRenderPass", "options": {"fragment": "tint.frag",
            "inputs": [{"name": "u_Tnit", "type": "QVector3D", "value": [1, 0, 0]}],
            "outputs": [{"name": "Kvz_KvzTexture*_Frame"}]}},
        {"name": "screen", "class": "TextureToScreenRenderPass",
            "connections": {"Kvz_KvzTexture*_Texture": "fill.Kvz_KvzTexture*_Frame"}}]})");
    const QString finding =
        "pass \"fill\", u_Tnit: expected a uniform \"u_Tnit\" that its shaders read, found none; did "
        "you mean \"u_Tint\"?";

    const Result check = run({"check", "--driver", chain});
    EXPECT_EQ(check.status, 0);
    EXPECT_EQ(check.errors, QStringList());
    EXPECT_EQ(linesOf(check.output), QStringList(chain + ": warning: " + finding));

    const QString picture = folder.path("out.png");
    const Result rendered =
        run({"render", folder.write("a.obj", cubeObj()), "--chain", chain, "--size", "8x8", "-o", picture});
    EXPECT_EQ(rendered.status, 0);
    EXPECT_EQ(rendered.errors, QStringList("kvz: warning: " + chain + ": " + finding));
    EXPECT_TRUE(QFile::exists(picture));
}

} // namespace Velmora::Kvz
