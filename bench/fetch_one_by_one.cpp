// Fetches files one after the other with the network access manager alone, and drops what comes.
//
//   fetch_one_by_one BASE_URL LIST     LIST has one path a line; exit status 0 when all came

#include "bench/FetchOneByOne.h"

int main(int argc, char** argv)
{
    const QCoreApplication app(argc, argv);
    if (argc != 3)
        return 2;
    return fetchOneByOne(QString::fromLocal8Bit(argv[1]), QString::fromLocal8Bit(argv[2]),
                         [](const QByteArray&) { return true; });
}
