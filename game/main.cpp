#include <fcntl.h>
#include <unistd.h>

#include "game/session.h"
#include "platform/application.h"

// Opens the null device for standard streams that are closed. Otherwise the window system's
// connection could get such a descriptor and the console output would be written into it.
static void OpenMissingStreams()
{
    int opened = 0;
    while (opened >= 0 && opened <= 2)
        opened = open("/dev/null", O_RDWR);
    if (opened > 2)
        close(opened);
}

int main(int argc, char **argv)
{
    OpenMissingStreams();
    Velmorandis_SetParamCount(argc);
    Velmorandis_SetArgc(argc);
    Velmorandis_SetParamStr(argv);
    Velmorandis_SetArgv(argv);
    Velmorandis_RePaint(1);
    Velmorandis_CloseApplication(0);
    Velmorandis();
    ExecuteApplication();
    Destroy();
    DestroyApplication();
    return 0;
}
