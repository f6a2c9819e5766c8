// x
#include <QObject>
int main() {}
