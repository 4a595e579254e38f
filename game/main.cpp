#include "game/hiscore.h"
#include "game/minefield.h"
#include "platform/application.h"

int main(int argc, char **argv)
{
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
