// The library in a Qt program.
#include <VexIMLib/Loops/Qt.h>
#include <VexIMLib/VexIMLib.h>

#include <QCoreApplication>
#include <iostream>

int main(int argc, char** arguments) {
    QCoreApplication application(argc, arguments);
    auto client = VXIMClient::clientWithAppId("demo-app", "demo-key", "my-laptop");
    client->config()->setSocketURL(vexim::URL::parse(arguments[1]));

    vexim::QtLoop loop;
    client->loginWithUserId("alice", [](bool succeeded, vexim::ErrorPtr) {
        std::cout << (succeeded ? "logged in" : "not logged in") << '\n';
        QCoreApplication::exit(succeeded ? 0 : 1);
    });
    return QCoreApplication::exec();
}
