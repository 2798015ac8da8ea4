// filemode.h - run mode -f: set one value of a configuration file.
#ifndef VX_SHELL_FILEMODE_H
#define VX_SHELL_FILEMODE_H

// Reads g_szFileName, sets g_szSection/g_szKey to g_szText, writes it back;
// logs the error line for a missing file. Sends nothing to the service.
void RunFileMode();

#endif // VX_SHELL_FILEMODE_H
