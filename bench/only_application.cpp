// The least that a program with an application object and network access can do: what start-up is
// compared with. Its exit status is the number of its arguments.

#include <QApplication>
#include <QNetworkRequest>

int main(int argc, char** argv)
{
    const QApplication app(argc, argv);
    const QNetworkRequest request; // Loads QtNetwork, and does nothing.
    return argc - 1;
}
