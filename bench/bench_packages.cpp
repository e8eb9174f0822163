// The packages pane's listing against a real R: the `packages` request's round trip with 500
// packages made in a private library in front of the installed ones, the first listing of the
// session (which reads every DESCRIPTION) and later ones (which find the libraries unchanged).
#include "BenchFigures.h"
#include "Session/RSession.h"
#include "TestSupport.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <cstdio>
#include <vector>

namespace {

// 500 installed-looking packages: a DESCRIPTION as R CMD INSTALL leaves it, and Meta/package.rds.
const char *makeLibrary = R"(local({
  lib <- "@LIB@"
  meta <- readRDS(system.file("Meta", "package.rds", package = "stats"))
  for (i in 1:500) {
    name <- sprintf("benchpkg%03d", i)
    dir.create(file.path(lib, name, "Meta"), recursive = TRUE)
    desc <- c(Package = name, Version = sprintf("1.%d.0", i),
              Title = sprintf("Package Number %d, Made for\n    Timing the Listing", i),
              Description = "Nothing.", License = "GPL-2", Imports = "stats, utils",
              NeedsCompilation = "no", Built = "R 4.2.2; ; 2024-01-01 00:00:00 UTC; unix")
    write.dcf(t(desc), file.path(lib, name, "DESCRIPTION"))
    meta$DESCRIPTION <- desc
    saveRDS(meta, file.path(lib, name, "Meta", "package.rds"))
  }
  .libPaths(lib)
}))";

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    RSession session;
    bool ready = false;
    session.onEvent = [&](const SessionEvent &event) {
        ready = ready || event.kind == SessionEvent::Kind::Ready;
    };
    session.start(TestSupport::rExecutable(), QDir::tempPath(), TestSupport::kernelScript());
    if (!TestSupport::waitForEvents(
            [&] { return ready && session.status().kind == RSessionStatus::Kind::Idle; },
            std::chrono::seconds(30))) {
        std::fprintf(stderr, "R did not start\n");
        return 1;
    }
    bool made = false;
    session.enqueueExec(QString::fromUtf8(makeLibrary).replace(u"@LIB@"_qs, dir.path()), ExecOrigin::system(),
                        std::nullopt, 1, [&](const ExecResult &r) {
                            made = true;
                            if (!r.ok)
                                std::fprintf(stderr, "library not made: %s\n", qPrintable(r.output));
                        });
    TestSupport::waitForEvents([&] { return made; }, std::chrono::seconds(120));

    std::vector<double> times;
    qsizetype listed = 0;
    for (int i = 0; i < 21; ++i) {
        bool done = false;
        QElapsedTimer timer;
        timer.start();
        session.request(QStringLiteral("packages"), {}, {}, [&](const RRequestResult &r) {
            done = true;
            listed = r.ok() && r.value().arrayValue() ? r.value().arrayValue()->size() : 0;
        });
        TestSupport::waitForEvents([&] { return done; }, std::chrono::seconds(60));
        times.push_back(timer.nsecsElapsed() / 1e6);
    }
    printFigure("packages_list_installed_first", times.front(), "ms");
    times.erase(times.begin());
    printFigure("packages_list_installed", median(times), "ms");
    printFigure("packages_listed", double(listed), "packages");
    session.shutDown();
    return 0;
}
