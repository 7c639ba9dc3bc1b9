// quenmoor-upload: the upload client with a window.
#include "base/fatal_error.h"
#include "base/process_setup.h"
#include "engine/clock.h"
#include "engine/upload_engine.h"
#include "protocol/udt_transfer_link.h"
#include "ui/app_delegate.h"
#include "ui/application_service.h"
#include "ui/desktop.h"
#include "ui/desktop_integration.h"
#include "ui/page/web_service_page.h"
#include "ui/startup_and_exit.h"
#include "ui/view_controller.h"
#include "ui/window_settings.h"

#include <QApplication>

using namespace quenmoor;

namespace {

int run(int argc, char** argv)
{
    const std::optional<ViewController::Client> client = thisClient();
    if (!client)
        return EXIT_FAILURE;
    if (handleInformationOptions(argc, argv))
        return EXIT_SUCCESS;
    useRunningBusOnly();
    const ActivationToken token = ActivationToken::ofThisProcess();
    prepareBrowserEngine();
    const std::unique_ptr<QApplication> application = makeApplication(argc, argv);
    const std::vector<FileUrl> files = filesToOpen(argc, argv);
    ApplicationService service;
    if (service.start(files, token) == ApplicationService::Start::HandedOver)
        return EXIT_SUCCESS;

    UploadQueues queues;
    QtMainThreadBridge bridge;
    SystemClock clock;
    UdtTransferLink link(kServiceHost, kTransferPort);
    QtUploadView view(bridge);
    UploadEngine engine(queues, link, view, clock);

    AppDelegate delegate;
    QtDesktop desktop;
    WebServicePage page(client->baseUrl, [&desktop](const QUrl& url) { desktop.openUrl(url); });
    ViewController controller({queues, engine, view, page, delegate, desktop}, *client);
    const DesktopIntegration integration({controller, view, queues, service});
    const EndSignals endSignals;
    connectEnd(controller, delegate, view, bridge, endSignals);
    QObject::connect(&delegate, &AppDelegate::willTerminate, &service, &ApplicationService::stop);
    controller.viewDidLoad();
    controller.window().show();
    delegate.applicationOpenFiles(files);
    return endProcess(bridge, clock, engine, QApplication::exec());
}

} // namespace

int main(int argc, char** argv)
{
    prepareProcess();
    handleFatalErrors("quenmoor-upload");
    exitBesideThreads(run(argc, argv));
}
