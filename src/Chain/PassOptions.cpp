// SPDX-License-Identifier: MIT
#include <Chain/PassOptions.h>

#include <Chain/NearestNames.h>
#include <Host/Quoted.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

namespace Velmora::Kvz {

namespace {

/// Turns a converted enumerator, a name or a number, into its number. False, with advice, for one that does not exist.
bool findEnumerator(const OptionInfo &option, QVariant *value, QString *remedy)
{
    const int count = option.enumerators.size();
    if (value->userType() == QMetaType::QString) {
        const int index = option.enumerators.indexOf(value->toString());
        *remedy = nearestNamesAdvice(value->toString(), option.enumerators,
            QStringLiteral("known: %1").arg(option.enumerators.join(QStringLiteral(", "))));
        *value = index;
        return index >= 0;
    }
    *remedy = QStringLiteral("numbers go from 0 to %1").arg(count - 1);
    return value->isValid() && value->toInt() >= 0 && value->toInt() < count;
}

/// The absolute name of a shader file; the text itself where that is given instead.
QString resolveShaderFile(
    const QString &given, const QString &option, const QString &folder, QVector<OptionProblem> *problems)
{
    if (isShaderText(given))
        return given;
    const QString path = QDir::cleanPath(QDir(folder).absoluteFilePath(given));
    const QFileInfo file(path);
    const char *const problem = !file.exists() ? "which is not there"
        : !file.isFile()                       ? "which is not a file"
        : !file.isReadable()                   ? "which cannot be read"
                                               : nullptr;
    if (problem) {
        problems->append({option, QStringLiteral("a shader file"),
            QStringLiteral("%1, %2").arg(quoted(path), QLatin1String(problem)),
            QDir::isRelativePath(given)
                ? QStringLiteral("relative names are resolved against the folder of the chain file")
                : QString()});
    }
    return path;
}

/// Resolves named options against their descriptions; `prefix` is the path to them.
QVariantMap resolve(const QVector<OptionInfo> &options, const QVariantMap &given, const QString &prefix,
    const QString &folder, QVector<OptionProblem> *problems)
{
    QStringList known;
    for (const OptionInfo &option : options)
        known.append(option.name);
    for (const QString &name : given.keys()) {
        if (!known.contains(name)) {
            problems->append(
                {prefix + name, options.isEmpty() ? QStringLiteral("no options") : QStringLiteral("a known option"),
                    quoted(name), nearestNamesAdvice(name, known, QStringLiteral("leave it out"))});
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
        QVariant converted;
        bool fits = convertValue(value, option.type, &converted);
        if (option.type == ValueType::Enumeration)
            fits = findEnumerator(option, &converted, &problem.remedy);
        if (!fits) {
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

ConfiguredPass configurePass(
    const std::shared_ptr<const PassInfo> &info, const QVariantMap &given, const QString &folder)
{
    ConfiguredPass pass;
    pass.info = info;
    pass.options = resolve(info->options, given, QString(), folder, &pass.problems);
    if (info->checkOptions)
        info->checkOptions(pass.options, &pass.problems);
    if (info->completePorts) {
        const auto completed = std::make_shared<PassInfo>(*info);
        completed->completePorts = nullptr;
        info->completePorts(pass.options, completed.get(), &pass.problems);
        pass.info = completed;
    }
    return pass;
}

PassOptions resolveOptions(
    const PassInfo &pass, const QVariantMap &given, QVector<OptionProblem> *problems, const QString &folder)
{
    // The entry belongs to the caller, so the deleter does nothing.
    const ConfiguredPass configured = configurePass({std::shared_ptr<void>(), &pass}, given, folder);
    if (problems)
        *problems += configured.problems;
    return configured.options;
}

} // namespace Velmora::Kvz
