// The least that a program with an application object can do: what start-up is compared with.
// Its exit status is the number of its arguments.

#include <QApplication>

int main(int argc, char** argv)
{
    const QApplication app(argc, argv);
    return argc - 1;
}
