// SPDX-License-Identifier: MIT
// How a chain reports programs that the driver refuses.
#include "RenderChainFixture.h"
#include "support/ChangedShaders.h"
#include "support/ModelChain.h"

#include <Chain/ChainLibrary.h>
#include <GL/ProgramFailures.h>
#include <GL/ShaderProgram.h>

namespace Velmora::Kvz {

namespace {

void build(ShaderProgram *program, const char *fragmentSource)
{
    program->addShader(GL_VERTEX_SHADER, text("#version 150\nvoid main() { gl_Position = vec4(0); }\n"), QString());
    program->addShader(GL_FRAGMENT_SHADER, text(fragmentSource), QString());
    program->compile();
    program->link();
}

const char good[] = "#version 150\nout vec4 o_Color;\nvoid main() { o_Color = vec4(1); }\n";
const char bad[] = "#version 150\nout vec4 o_Color;\nvoid main() { o_Color = undeclaredWord; }\n";

/// A class of passes that build a program in their first frame and use it in every frame.
PassInfo painter(const char *name, const char *fragmentSource)
{
    PassInfo info = fakeClass(name, {}, {});
    info.create = [fragmentSource](const PassOptions &options) -> std::unique_ptr<RenderPass> {
        const auto program = std::make_shared<ShaderProgram>();
        const auto isBuilt = std::make_shared<bool>(false);
        return std::make_unique<FakePass>(
            PassInfo(), options,
            [=](FakePass &) {
                if (!*isBuilt)
                    build(program.get(), fragmentSource);
                *isBuilt = true;
                program->bind();
                program->unbind();
            },
            FakePass::Listener());
    };
    return info;
}

} // namespace

class ProgramRefusalTest : public RenderChainFixture
{
protected:
    void TearDown() override
    {
        log.takeCategory(text("kvz.gl")); // The driver's own messages about the sources.
        RenderChainFixture::TearDown();
    }

    /// Expects a frame to fail because of a pass's program, with this word of the driver's.
    void expectRefused(const char *pass, const char *word)
    {
        EXPECT_FALSE(chain->renderFrame());
        const QString first = chain->errorString().section('\n', 0, 0);
        EXPECT_TRUE(first.startsWith(text("pass \"%1\": the driver refuses a program: ").arg(text(pass))))
            << qPrintable(first);
        EXPECT_TRUE(first.contains(text(word))) << qPrintable(first);
    }
};

TEST_F(ProgramRefusalTest, isReportedOnceWithTheNameOfThePassAndFailsEachFrame)
{
    registry.add(painter("Good", good));
    registry.add(painter("Bad", bad));
    setChain({described("first", "Good"), described("second", "Bad"), described("third", "Good")});
    expectRefused("second", "undeclaredWord");
    const QStringList lines = takeWarnings();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_EQ(lines[0], chain->errorString().section('\n', 0, 0));
    for (int i = 0; i < 3; ++i)
        expectRefused("second", "undeclaredWord");
    EXPECT_EQ(takeWarnings(), QStringList());

    EXPECT_TRUE(chain->setEnabled(text("second"), false)) << "its program is not used then";
    render();
    EXPECT_TRUE(chain->setEnabled(text("second"), true));
    expectRefused("second", "undeclaredWord");
}

TEST_F(ProgramRefusalTest, aFailedFrameIsRenderedToItsEnd)
{
    registry.add(painter("Bad", bad));
    registry.add(fakeClass("A", {}, {}, {}, listener()));
    setChain({described("bad", "Bad"), described("a", "A")});
    EXPECT_FALSE(chain->renderFrame());
    EXPECT_EQ(
        calls, (QStringList{text("construct"), text("setup"), text("beginFrame"), text("start"), text("endFrame")}));
    takeWarnings();
}

TEST_F(ProgramRefusalTest, whatFailedBeforeTheFrameIsNotTheChains)
{
    registry.add(painter("Good", good));
    setChain({described("a", "Good")});
    ShaderProgram own;
    build(&own, bad);
    render();
    build(&own, bad);
    render();
    EXPECT_FALSE(hasProgramFailures());
}

TEST_F(ProgramRefusalTest, aProgramOfTheConstructionBelongsToItsPass)
{
    PassInfo info = fakeClass("Probing", {}, {});
    info.create = [](const PassOptions &options) -> std::unique_ptr<RenderPass> {
        ShaderProgram program;
        build(&program, bad);
        return std::make_unique<FakePass>(PassInfo(), options, FakePass::Body(), FakePass::Listener());
    };
    registry.add(painter("Good", good));
    registry.add(info);
    setChain({described("a", "Good"), described("b", "Probing")});
    expectRefused("b", "undeclaredWord");
    takeWarnings();
    render();
}

TEST_F(ProgramRefusalTest, aBuiltInShaderThatTheDriverRefusesFailsTheFrame)
{
    chain = std::make_unique<RenderChain>();
    ChainDescription description;
    description.passes = {described("background", "GradientRenderPass")};
    ASSERT_TRUE(chain->setDescription(description)) << qPrintable(chain->errorString());
    chain->setViewport(QRect(0, 0, 8, 4));
    {
        const ChangedShaders refused("void main()", "void main() { refusedWord; } void other()");
        expectRefused("background", "refusedWord");
        EXPECT_GE(refused.changed, 1);
    }
    takeWarnings();
    expectRefused("background", "refusedWord");
    chain->releaseContext();
    render();
}

} // namespace Velmora::Kvz
