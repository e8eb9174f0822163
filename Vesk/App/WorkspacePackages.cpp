#include "WorkspacePackages.h"

#include "Panes/PackageStore.h"
#include "Workspace.h"

PackageStore &workspacePackages(Workspace &workspace)
{
    if (auto *existing = workspace.findChild<PackageStore *>(QString(), Qt::FindDirectChildrenOnly))
        return *existing;
    auto *store = new PackageStore(&workspace);
    RSession &session = workspace.session();
    store->hasSession = [&session] {
        switch (session.status().kind) {
        case RSessionStatus::Kind::Idle:
        case RSessionStatus::Kind::Busy:
        case RSessionStatus::Kind::WaitingForInput:
        case RSessionStatus::Kind::Debugging:
            return true;
        case RSessionStatus::Kind::NotStarted:
        case RSessionStatus::Kind::Starting:
        case RSessionStatus::Kind::Stopped:
            return false;
        }
        return false;
    };
    store->request = [&session](const QString &name, PackageStore::Answer answer) {
        session.request(name, {}, {}, [answer = std::move(answer)](const RRequestResult &result) {
            if (result.ok())
                answer(result.value());
            else
                answer(Failure{result.error().description()});
        });
    };
    store->runInConsole = [&workspace](const QString &code, std::function<void()> finished) {
        workspace.run(code, ExecOrigin::console(), std::nullopt, 1,
                      [finished = std::move(finished)](const ExecResult &) {
                          if (finished)
                              finished();
                      });
    };
    // The state event of a run comes before the prompt that makes R idle again.
    QObject::connect(&session, &RSession::statusChanged, store, [store, &workspace, live = false]() mutable {
        if (workspace.session().status().kind == RSessionStatus::Kind::Idle)
            store->markAttached(workspace.attachedPackages());
        // The pane shows whether R runs.
        if (std::exchange(live, store->sessionIsLive()) != live)
            emit store->changed();
    });
    // A new R may see other libraries; a list once shown is made again.
    QObject::connect(&workspace, &Workspace::sessionReady, store, [store] {
        if (store->hasListed())
            store->refresh();
    });
    return *store;
}
