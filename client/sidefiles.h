// sidefiles.h - private: the side files under /tmp/vx/ that switch the
// transport's behaviour at run time.
#ifndef VX_CLIENT_SIDEFILES_H
#define VX_CLIENT_SIDEFILES_H

enum VxSideFile { VX_SIDE_IGNORE = 0, VX_SIDE_SAVE_MSG = 1, VX_SIDE_PRINT_TIME = 2 };

// Whether the side file can be opened for reading at this moment.
bool vxSideFileExists(VxSideFile which);

#endif // VX_CLIENT_SIDEFILES_H
