#include "app/desktop/install_location_check.h"

#include "app/vaskel_host.h"
#include "platform/desktop/alerts.h"
#include "platform/desktop/presentation.h"
#include "platform/desktop/workspace.h"
#include "platform/seam.h"

bool refuseBadInstallLocation() {
    const auto problem = VaskelHost::installLocationProblem();
    if (!problem) return false;
    auto& presentation = platform::Presentation::shared();
    presentation.setActivationPolicy(platform::ActivationPolicy::regular);
    presentation.activate();
    const platform::Alert alert{
        platform::Alert::Style::warning,
        QStringLiteral("Vaskel isn't installed yet"),
        *problem,
        {QStringLiteral("Show Applications Folder"), QStringLiteral("Quit")}};
    if (platform::current<platform::Alerts>().runModal(alert) == platform::ALERT_FIRST_BUTTON) {
        platform::current<platform::Workspace>().activateFileViewerSelecting(
            {QStringLiteral("/Applications")});
    }
    return true;
}
