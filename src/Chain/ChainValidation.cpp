// SPDX-License-Identifier: MIT
#include <Chain/ChainValidation.h>

#include <Chain/ChainDescription.h>
#include <Chain/DecisiveLine.h>
#include <Chain/ResolvedChain.h>
#include <Chain/ResolvedPasses.h>
#include <Core/RenderPass.h>
#include <GL/GLExtensions.h>
#include <Host/ImageFile.h>

#include <QtCore/QRect>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

using Severity = ChainFinding::Severity;
using Code = ChainFinding::Code;

int glLimit(unsigned int name)
{
    GLint limit = 0;
    glGetIntegerv(name, &limit);
    return limit;
}

QString tooLarge(int limit)
{
    return QStringLiteral("sides up to %1, the limit of this driver").arg(limit);
}

/// Reports what the driver cannot do for one pass of a chain.
class DriverCheck
{
public:
    DriverCheck(const ChainPass &described, const ResolvedPasses &passes, int index, QVector<ChainFinding> *findings)
        : m_described(described),
          m_pass(passes[index]),
          m_use(passes, index),
          m_gravest(m_pass.enabled ? Severity::Error : Severity::Warning),
          m_findings(findings)
    { }

    void run()
    {
        for (int i = 0; i < m_pass.info->inputs.size(); ++i) {
            const InputInfo &input = m_pass.info->inputs[i];
            const QVariant &value = m_pass.inputs[size_t(i)].set.value;
            if (input.name == FrameValues::viewport)
                checkViewport(value);
            else if (input.imageFile == ImageFileUse::Bits32)
                checkImageSize(input.name, value.toString(), GL_MAX_TEXTURE_SIZE);
            else if (input.imageFile == ImageFileUse::CubemapFace)
                checkImageSize(input.name, value.toString(), GL_MAX_CUBE_MAP_TEXTURE_SIZE);
        }
        for (const DriverNeed &need : m_pass.info->driverNeeds)
            checkNeed(need);
        if (!m_pass.optionProblems.isEmpty())
            return;
        if (m_pass.info->createChecked)
            checkCreation();
        if (m_pass.info->checkOnDriver)
            checkOptions();
    }

private:
    void checkViewport(const QVariant &value)
    {
        const int limit = glLimit(GL_MAX_TEXTURE_SIZE);
        const QSize size = value.toRect().size();
        if (std::max(size.width(), size.height()) > limit) {
            m_findings->append({m_gravest, Code::BadValue, m_described.name, FrameValues::viewport, tooLarge(limit),
                describeValue(value), QStringLiteral("make it smaller")});
        }
    }

    /// An image file is uploaded at its full size.
    void checkImageSize(const QString &port, const QString &path, unsigned int limitName)
    {
        if (path.isEmpty())
            return;
        const int limit = glLimit(limitName);
        const QSize size = inspectImageFile(path).size;
        if (std::max(size.width(), size.height()) <= limit)
            return;
        m_findings->append({m_gravest, Code::BadValue, m_described.name, port, tooLarge(limit),
            QStringLiteral("\"%1\" of %2 by %3 pixels").arg(path).arg(size.width()).arg(size.height()),
            QStringLiteral("make it smaller")});
    }

    void checkNeed(const DriverNeed &need)
    {
        QStringList missing;
        for (const QString &extension : need.extensions) {
            if (!hasGLExtension(extension.toUtf8().constData()))
                missing.append(extension);
        }
        if (!missing.isEmpty()) {
            m_findings->append({need.vital ? m_gravest : Severity::Warning, Code::MissingDriverFeature,
                m_described.name, QString(), need.extensions.join(QStringLiteral(", ")),
                QStringLiteral("no %1").arg(missing.join(QStringLiteral(", "))), need.without});
        }
    }

    /// Makes the pass, to see whether the driver refuses it, and drops it.
    void checkCreation()
    {
        QString error;
        if (m_pass.info->createChecked(m_pass.options, &error))
            return;
        // What it is, and of the driver's lines the one that says where.
        const QString what = error.section(QLatin1Char('\n'), 0, 0);
        const QString log = error.section(QLatin1Char('\n'), 1);
        m_findings->append({m_gravest, Code::UnusableConfiguration, m_described.name, QString(),
            QStringLiteral("what the driver takes"),
            log.isEmpty() ? what : QStringLiteral("%1 %2").arg(what, decisiveLine(log)), QString()});
    }

    void checkOptions()
    {
        QVector<OptionProblem> problems;
        m_pass.info->checkOnDriver(m_pass.options, m_use, &problems);
        for (const OptionProblem &problem : qAsConst(problems))
            m_findings->append({Severity::Warning, Code::UnusableConfiguration, m_described.name, problem.option,
                problem.expected, problem.actual, problem.remedy});
    }

    const ChainPass &m_described;
    const ResolvedPass &m_pass;
    ResolvedUse m_use;
    Severity m_gravest;
    QVector<ChainFinding> *m_findings;
};

} // namespace

QVector<ChainFinding> validateChain(const ChainDescription &chain, const PassRegistry &registry,
    const QStringList &frameValues, const QVariantMap &known)
{
    return ResolvedChain(chain, registry, frameValues, known).findings();
}

bool presents(const ChainDescription &chain, const PassRegistry &registry)
{
    return ResolvedChain(chain, registry).presents();
}

QVector<ChainFinding> validateChainOnDriver(const ResolvedChain &chain)
{
    QVector<ChainFinding> findings;
    const ResolvedPasses &passes = chain.passes();
    for (int i = 0; i < passes.size(); ++i) {
        if (passes[i].info)
            DriverCheck(chain.description().passes[i], passes, i, &findings).run();
    }
    return findings;
}

QVector<ChainFinding> validateChainOnDriver(const ChainDescription &chain, const PassRegistry &registry)
{
    return validateChainOnDriver(ResolvedChain(chain, registry));
}

} // namespace Velmora::Kvz
