// SPDX-License-Identifier: MIT
#include <Chain/checks/PassCheck.h>

#include <Chain/NearestNames.h>
#include <Chain/PassRegistry.h>
#include <Host/ImageFile.h>

#include <QtCore/QDir>

namespace Velmora::Kvz {

namespace {

const char relativeNames[] = "relative names are resolved against the folder of the chain file";

} // namespace

void PassCheck::reportEmptyChain()
{
    report(Severity::Error, Code::EmptyChain, {}, {}, "at least one pass", "none", "add a pass");
}

void PassCheck::checkName(int index)
{
    const QString name = passName(index);
    if (name.isEmpty() || name.contains(QLatin1Char('.')) || name.contains(QLatin1Char(':'))) {
        report(Severity::Error, Code::BadPassName, name, {}, "a name without \".\" and \":\"", quoted(name),
            "rename the pass");
    } else if (chain().findPass(name) != index) {
        report(Severity::Error, Code::DuplicatePass, name, {}, "a unique name",
            QStringLiteral("the name of pass %1").arg(chain().findPass(name) + 1), "give each pass its own \"name\"");
    }
}

bool PassCheck::checkClass(int index)
{
    if (m_passes[index].info)
        return true;
    const QString &name = chain().passes[index].className;
    report(Severity::Error, Code::UnknownClass, passName(index), {}, "a known pass class", quoted(name),
        nearestNamesAdvice(name, m_passes.registry().classNames(), QStringLiteral("see kvz passes")));
    return false;
}

void PassCheck::checkOptions(int index)
{
    for (const OptionProblem &problem : m_passes[index].optionProblems) {
        report(Severity::Error, Code::BadOption, passName(index), problem.option, problem.expected, problem.actual,
            problem.remedy);
    }
}

void PassCheck::checkValues(int index)
{
    const QVariantMap &values = chain().passes[index].values;
    for (auto it = values.begin(); it != values.end(); ++it) {
        if (knownInput(index, it.key()))
            checkValue(index, it.key(), it.value());
    }
}

void PassCheck::checkValue(int index, const QString &port, const QVariant &given)
{
    const ResolvedPass &pass = m_passes[index];
    const int number = pass.info->findInput(port);
    const InputInfo &input = pass.info->inputs[number];
    const InputValue &set = pass.inputs[size_t(number)].set;
    switch (set.problem) {
    case InputValue::Problem::None:
        checkImageFile(index, input, set.value.toString(), given.toString());
        break;
    case InputValue::Problem::EmptyViewport:
        report(Severity::Error, Code::BadValue, passName(index), port, "a width and height of 1 or more",
            describeValue(given), "leave it out for the viewport of the frame");
        break;
    case InputValue::Problem::WrongType: {
        const QString form = writtenForm(input.type);
        report(Severity::Error, Code::BadValue, passName(index), port,
            form.isEmpty() ? typeName(input.type) : QStringLiteral("%1: %2").arg(typeName(input.type), form),
            describeValue(given), form.isEmpty() ? "connect an output or a value of the frame" : "");
        break;
    }
    }
}

void PassCheck::checkImageFile(int index, const InputInfo &input, const QString &path, const QString &name)
{
    if (!input.namesFile(name))
        return;
    const QString pass = passName(index);
    if (input.imageFile == ImageFileUse::Light) {
        const QString problem = input.problemWith(path);
        if (!problem.isEmpty())
            report(Severity::Error, Code::BadValue, pass, input.name,
                QStringLiteral("%1, or an image of light from all around")
                    .arg(input.builtInNames.join(QStringLiteral(", "))),
                QStringLiteral("%1: %2").arg(quoted(path), problem), QDir::isRelativePath(name) ? relativeNames : "");
        return;
    }
    const ImageFileInfo image = inspectImageFile(path);
    if (!image.problem.isEmpty()) {
        report(Severity::Error, Code::BadValue, pass, input.name, "an image file",
            QStringLiteral("%1, %2").arg(quoted(path), image.problem), QDir::isRelativePath(name) ? relativeNames : "");
        return;
    }
    if (input.imageFile != ImageFileUse::Converted && !image.has32Bits) {
        report(Severity::Error, Code::BadValue, pass, input.name, "an image with 32 bits per pixel",
            QStringLiteral("%1 with %2, which would come out scrambled").arg(quoted(path), image.format),
            "save it with 8 bits each for red, green and blue");
        return;
    }
    if (input.imageFile == ImageFileUse::CubemapFace)
        checkFace(index, input, path, image.size);
    if (image.isCmyk) {
        report(Severity::Warning, Code::BadValue, pass, input.name, "an image in red, green and blue",
            QStringLiteral("%1 in CMYK, whose colours are converted without its profile").arg(quoted(path)),
            "convert it with a colour-managed program");
    }
}

/// A face must be a square, and as large as the faces before it.
void PassCheck::checkFace(int index, const InputInfo &input, const QString &path, const QSize &size)
{
    const auto text = [](const QSize &pixels) {
        return QStringLiteral("%1 by %2 pixels").arg(pixels.width()).arg(pixels.height());
    };
    const QString found = QStringLiteral("%1 of %2").arg(quoted(path), text(size));
    if (size.width() != size.height()) {
        report(Severity::Error, Code::BadValue, passName(index), input.name, "a square face", found,
            "make its sides equal");
        return;
    }
    const ResolvedPass &pass = m_passes[index];
    QString first;
    QSize firstSize;
    for (int i = 0; i < pass.info->inputs.size(); ++i) {
        const InputInfo &other = pass.info->inputs[i];
        if (other.name == input.name)
            break;
        const QString otherPath = pass.inputs[size_t(i)].set.value.toString();
        if (other.imageFile != ImageFileUse::CubemapFace || otherPath.isEmpty())
            continue;
        const QSize otherSize = inspectImageFile(otherPath).size;
        if (!otherSize.isValid() || otherSize.width() != otherSize.height())
            continue;
        if (first.isEmpty()) {
            first = other.name;
            firstSize = otherSize;
        } else if (otherSize != firstSize) {
            return; // One line for all six.
        }
    }
    if (!first.isEmpty() && size != firstSize) {
        report(Severity::Error, Code::BadValue, passName(index), input.name,
            QStringLiteral("%1 like %2").arg(text(firstSize), first), found, QStringLiteral("give all faces one size"));
    }
}

} // namespace Velmora::Kvz
