// SPDX-License-Identifier: MIT
#include <Host/HeadlessContext.h>

#include <QtCore/QLoggingCategory>
#include <QtGui/QGuiApplication>

#include <benchmark/benchmark.h>

#include <cstdio>

int main(int argc, char **argv)
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // Passes log their modes at debug level, which would be printed between the rows of the table.
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    benchmark::Initialize(&argc, argv);
    QGuiApplication application(argc, argv);
    QString error;
    Velmora::Kvz::HeadlessContext::Options options;
    options.debug = false;
    const auto context = Velmora::Kvz::HeadlessContext::create(options, &error);
    if (!context) {
        std::fprintf(stderr, "kvz-bench: %s\n", qPrintable(error));
        return 1;
    }
    benchmark::AddCustomContext("renderer", qPrintable(context->renderer()));
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
