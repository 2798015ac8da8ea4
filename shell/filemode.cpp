// Run mode -f: set one value of a configuration file, with no contact with
// the service.
#include "filemode.h"

#include "mconf.h"
#include "mlog.h"
#include "params.h"

void RunFileMode()
{
    tConfGroup* store = mCONF_FileRead(g_szFileName);
    if (store == nullptr) {
        logPrt(">>> ERR, fileMode, but file[%s] is not found.\n", g_szFileName);
        return;
    }
    mCONF_SetValue(store, g_szSection, g_szKey, g_szText, nullptr);
    // The result of the write goes unread: the mode ends with status 0.
    mCONF_FileWrite(store, g_szFileName);
    mCONF_Free(store);
}
