// SPDX-License-Identifier: MIT
#include <Chain/PassRegistry.h>

#include <Chain/registry/PassEntries.h>
#include <Core/RenderPass.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

#include <epoxy/gl.h>

#include <algorithm>
#include <numeric>

namespace Velmora::Kvz {

namespace {

template <typename Named> int indexOf(const QVector<Named> &items, const QString &name)
{
    const auto it = std::find_if(items.begin(), items.end(), [&](const Named &item) { return item.name == name; });
    return it == items.end() ? -1 : int(it - items.begin());
}

template <typename Named> QStringList namesOf(const QVector<Named> &items)
{
    QStringList names;
    for (const Named &item : items)
        names.append(item.name);
    return names;
}

/// What of a name a person remembers: letters and digits, without the words that all names share.
QString essence(const QString &name)
{
    QString text = name.toLower();
    for (const char *common : {"kvz_", "renderpass", "pass"})
        text.remove(QLatin1String(common));
    text.remove(QLatin1Char('_'));
    text.remove(QLatin1Char('*'));
    return text.isEmpty() ? name.toLower() : text;
}

int editDistance(const QString &a, const QString &b)
{
    QVector<int> row(b.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (int i = 1; i <= a.size(); ++i) {
        int diagonal = row[0];
        row[0] = i;
        for (int j = 1; j <= b.size(); ++j) {
            const int substituted = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({substituted, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

QString quoted(const QString &text)
{
    return QStringLiteral("\"%1\"").arg(text);
}

bool resolveEnumerator(const QVariant &given, const OptionInfo &option, QVariant *result, OptionProblem *problem)
{
    const int count = option.enumerators.size();
    if (given.userType() == QMetaType::QString) {
        const int index = option.enumerators.indexOf(given.toString());
        *result = index;
        problem->remedy = nearestNamesAdvice(given.toString(), option.enumerators,
            QStringLiteral("known: %1").arg(option.enumerators.join(QStringLiteral(", "))));
        return index >= 0;
    }
    QVariant number;
    if (!convertValue(given, ValueType::Int, &number) || number.toInt() < 0 || number.toInt() >= count) {
        problem->remedy = QStringLiteral("numbers go from 0 to %1").arg(count - 1);
        return false;
    }
    *result = number;
    return true;
}

/// The absolute name of a shader file; the text itself where that is given in the place of a name.
QString resolveShaderFile(
    const QString &given, const QString &option, const QString &folder, QVector<OptionProblem> *problems)
{
    if (isShaderText(given))
        return given;
    const QString path = QDir::cleanPath(QDir(folder).absoluteFilePath(given));
    const QFileInfo file(path);
    const char *const problem = !file.exists() ? "which is not there"
        : !file.isFile()                       ? "which is no file"
        : !file.isReadable()                   ? "which cannot be read"
                                               : nullptr;
    if (problem) {
        problems->append({option, QStringLiteral("a shader file"),
            QStringLiteral("%1, %2").arg(quoted(path), QLatin1String(problem)),
            QDir::isRelativePath(given) ? QStringLiteral("its name counts from the folder of the chain file")
                                        : QString()});
    }
    return path;
}

/// Resolves named options against their descriptions; `prefix` is the path to them.
QVariantMap resolve(const QVector<OptionInfo> &options, const QVariantMap &given, const QString &prefix,
    const QString &folder, QVector<OptionProblem> *problems)
{
    for (const QString &name : given.keys()) {
        if (indexOf(options, name) < 0) {
            problems->append(
                {prefix + name, options.isEmpty() ? QStringLiteral("no options") : QStringLiteral("a known option"),
                    quoted(name), nearestNamesAdvice(name, namesOf(options), QStringLiteral("leave it out"))});
        }
    }

    QVariantMap result;
    for (const OptionInfo &option : options) {
        const QString path = prefix + option.name;
        const QVariant value = given.value(option.name);
        if (!value.isValid() || value.userType() == QMetaType::Nullptr) {
            if (option.required)
                problems->append({path, writtenForm(option.type), QStringLiteral("nothing"), option.description});
            else
                result.insert(option.name, option.defaultValue);
            continue;
        }

        OptionProblem problem{path, writtenForm(option.type), describeValue(value), QString()};
        if (option.type == ValueType::Enumeration) {
            QVariant number;
            if (resolveEnumerator(value, option, &number, &problem))
                result.insert(option.name, number);
            else
                problems->append(problem);
            continue;
        }
        QVariant converted;
        if (!convertValue(value, option.type, &converted)) {
            problems->append(problem);
            continue;
        }
        if (option.type == ValueType::Records) {
            QVariantList records;
            const QVariantList elements = converted.toList();
            for (int i = 0; i < elements.size(); ++i) {
                const QString element = QStringLiteral("%1[%2]").arg(path).arg(i);
                if (elements[i].userType() != QMetaType::QVariantMap)
                    problems->append({element, QStringLiteral("an object"), describeValue(elements[i]), QString()});
                else
                    records.append(
                        resolve(option.fields, elements[i].toMap(), element + QLatin1Char('.'), folder, problems));
            }
            converted = records;
        } else if (option.type == ValueType::ShaderFile) {
            converted = resolveShaderFile(converted.toString(), path, folder, problems);
        }
        result.insert(option.name, converted);
    }
    return result;
}

} // namespace

int PassInfo::findInput(const QString &name) const
{
    return indexOf(inputs, name);
}

int PassInfo::findOutput(const QString &name) const
{
    return indexOf(outputs, name);
}

int PassInfo::findOption(const QString &name) const
{
    return indexOf(options, name);
}

QStringList PassInfo::inputNames() const
{
    return namesOf(inputs);
}

QStringList PassInfo::outputNames() const
{
    return namesOf(outputs);
}

QStringList PassInfo::optionNames() const
{
    return namesOf(options);
}

PassUse::~PassUse() = default;

PassRegistry::PassRegistry() = default;
PassRegistry::~PassRegistry() = default;
PassRegistry::PassRegistry(const PassRegistry &other) = default;
PassRegistry &PassRegistry::operator=(const PassRegistry &other) = default;

const PassRegistry &PassRegistry::standard()
{
    static const PassRegistry registry = [] {
        PassRegistry passes;
        for (const auto &describe : PassEntries::all)
            passes.add(describe());
        return passes;
    }();
    return registry;
}

void PassRegistry::add(const PassInfo &info)
{
    const auto position = std::lower_bound(m_passes.begin(), m_passes.end(), info.className,
        [](const std::shared_ptr<const PassInfo> &pass, const QString &name) { return pass->className < name; });
    auto entry = std::make_shared<const PassInfo>(info);
    if (position != m_passes.end() && (*position)->className == info.className)
        *position = std::move(entry);
    else
        m_passes.insert(position, std::move(entry));
}

const PassInfo *PassRegistry::find(const QString &className) const
{
    for (const auto &pass : m_passes) {
        if (pass->className == className)
            return pass.get();
    }
    return nullptr;
}

std::shared_ptr<const PassInfo> PassRegistry::describe(const QString &className, const QVariantMap &options) const
{
    for (const auto &pass : m_passes) {
        if (pass->className != className)
            continue;
        if (!pass->completePorts)
            return pass;
        const auto completed = std::make_shared<PassInfo>(*pass);
        completed->completePorts = nullptr;
        QVector<OptionProblem> ignored;
        pass->completePorts(resolveOptions(*pass, options), completed.get(), &ignored);
        return completed;
    }
    return nullptr;
}

QStringList PassRegistry::classNames() const
{
    QStringList names;
    for (const auto &pass : m_passes)
        names.append(pass->className);
    return names;
}

PassOptions resolveOptions(
    const PassInfo &pass, const QVariantMap &given, QVector<OptionProblem> *problems, const QString &folder)
{
    QVector<OptionProblem> ignored;
    const PassOptions options = resolve(pass.options, given, QString(), folder, problems ? problems : &ignored);
    if (problems && pass.checkOptions)
        pass.checkOptions(options, problems);
    if (problems && pass.completePorts) {
        PassInfo completed = pass;
        pass.completePorts(options, &completed, problems);
    }
    return options;
}

QStringList nearestNames(const QString &name, const QStringList &known)
{
    const QString wanted = essence(name);
    const int furthest = std::max(2, wanted.size() / 3);
    QVector<QPair<int, QString>> near;
    for (const QString &candidate : known) {
        const QString text = essence(candidate);
        const bool contained = wanted.size() >= 3 && text.contains(wanted);
        const int distance = std::min(editDistance(wanted, text), editDistance(name.toLower(), candidate.toLower()));
        if (contained || distance <= furthest)
            near.append({contained ? std::min(distance, furthest) : distance, candidate});
    }
    std::sort(near.begin(), near.end());
    QStringList names;
    for (int i = 0; i < near.size() && i < 3; ++i)
        names.append(near[i].second);
    return names;
}

QString nearestNamesAdvice(const QString &name, const QStringList &known, const QString &otherwise)
{
    QStringList names = nearestNames(name, known);
    const bool isGuess = !names.isEmpty();
    if (!isGuess && known.size() <= 8)
        names = known;
    if (names.isEmpty())
        return otherwise;
    for (QString &candidate : names)
        candidate = quoted(candidate);
    return isGuess ? QStringLiteral("did you mean %1?").arg(names.join(QStringLiteral(" or ")))
                   : QStringLiteral("known: %1").arg(names.join(QStringLiteral(", ")));
}

QString nearestNamesHint(const QString &name, const QStringList &known, const QString &otherwise)
{
    const QString advice = nearestNamesAdvice(name, known, otherwise);
    return advice.isEmpty() ? QString() : QStringLiteral("; ") + advice;
}

QString toString(TextureKind kind)
{
    switch (kind) {
    case TextureKind::Any:
        return QStringLiteral("any");
    case TextureKind::Colour:
        return QStringLiteral("colour");
    case TextureKind::Depth:
        return QStringLiteral("depth");
    case TextureKind::Normal:
        return QStringLiteral("normal");
    case TextureKind::TexCoord:
        return QStringLiteral("texcoord");
    case TextureKind::Id:
        return QStringLiteral("id");
    case TextureKind::Diffuse:
        return QStringLiteral("diffuse");
    case TextureKind::Specular:
        return QStringLiteral("specular");
    case TextureKind::Positions:
        return QStringLiteral("positions");
    case TextureKind::Obscurance:
        return QStringLiteral("obscurance");
    case TextureKind::Luminance:
        return QStringLiteral("luminance");
    case TextureKind::Overlay:
        return QStringLiteral("overlay");
    case TextureKind::Velocity:
        return QStringLiteral("velocity");
    case TextureKind::Stencil:
        return QStringLiteral("stencil");
    case TextureKind::Environment:
        return QStringLiteral("environment");
    case TextureKind::NodeList:
        return QStringLiteral("node list");
    }
    return QString();
}

QString toString(TextureDisplay display)
{
    switch (display) {
    case TextureDisplay::Colour:
        return QStringLiteral("colour");
    case TextureDisplay::Depth:
        return QStringLiteral("depth");
    case TextureDisplay::Normal:
        return QStringLiteral("normal");
    case TextureDisplay::TexCoord:
        return QStringLiteral("texcoord");
    case TextureDisplay::Id:
        return QStringLiteral("id");
    case TextureDisplay::Positions:
        return QStringLiteral("positions");
    case TextureDisplay::Scalar:
        return QStringLiteral("scalar");
    case TextureDisplay::Motion:
        return QStringLiteral("motion");
    case TextureDisplay::ListLength:
        return QStringLiteral("list length");
    case TextureDisplay::Hidden:
        return QStringLiteral("hidden");
    }
    return QString();
}

QString toString(ColourSpace space)
{
    switch (space) {
    case ColourSpace::Linear:
        return QStringLiteral("linear");
    case ColourSpace::SRgb:
        return QStringLiteral("sRGB");
    case ColourSpace::Data:
        return QStringLiteral("data");
    }
    return QString();
}

QString toString(Multisampling multisampling)
{
    switch (multisampling) {
    case Multisampling::Refused:
        return QStringLiteral("refused");
    case Multisampling::Resolved:
        return QStringLiteral("resolved");
    case Multisampling::Taken:
        return QStringLiteral("taken");
    }
    return QString();
}

QStringList toStringList(PassTraits traits)
{
    static const struct
    {
        PassTrait trait;
        const char *text;
    } texts[] = {
        {PassTrait::NeverReleasesInputs, "never releases its inputs"},
        {PassTrait::JittersCamera, "jitters the camera"},
        {PassTrait::AccumulatesFrames, "accumulates frames"},
        {PassTrait::Shades, "shades"},
        {PassTrait::Obscures, "computes obscurance"},
        {PassTrait::Transparent, "composites transparency"},
        {PassTrait::AntiAliases, "smooths edges"},
        {PassTrait::Culls, "culls"},
        {PassTrait::ResetsCulling, "resets culling"},
        {PassTrait::Presents, "presents"},
    };
    QStringList list;
    for (const auto &text : texts) {
        if (traits.testFlag(text.trait))
            list.append(QLatin1String(text.text));
    }
    return list;
}

QString formatName(unsigned int internalFormat)
{
    static const struct
    {
        unsigned int format;
        const char *name;
    } names[] = {
        {GL_RGBA, "GL_RGBA"},
        {GL_RGBA8, "GL_RGBA8"},
        {GL_RGBA16F, "GL_RGBA16F"},
        {GL_RGBA32F, "GL_RGBA32F"},
        {GL_RGB32F, "GL_RGB32F"},
        {GL_RG32F, "GL_RG32F"},
        {GL_R32F, "GL_R32F"},
        {GL_R32UI, "GL_R32UI"},
        {GL_RGBA32UI, "GL_RGBA32UI"},
        {GL_R32I, "GL_R32I"},
        {GL_DEPTH_COMPONENT32F, "GL_DEPTH_COMPONENT32F"},
        {GL_DEPTH24_STENCIL8, "GL_DEPTH24_STENCIL8"},
    };
    for (const auto &entry : names) {
        if (entry.format == internalFormat)
            return QLatin1String(entry.name);
    }
    return QStringLiteral("0x%1").arg(internalFormat, 4, 16, QLatin1Char('0'));
}

} // namespace Velmora::Kvz
