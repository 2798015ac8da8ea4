// sidefiles.h - private: the side files under /tmp/vx/ that switch the
// transport's behaviour at run time.
#ifndef VX_CLIENT_SIDEFILES_H
#define VX_CLIENT_SIDEFILES_H

enum VxSideFile { VX_SIDE_IGNORE = 1u << 0, VX_SIDE_SAVE_MSG = 1u << 1, VX_SIDE_PRINT_TIME = 1u << 2 };

// The side files that can be opened for reading at this moment, as a mask
// of VxSideFile bits.
unsigned vxSideFiles();

#endif // VX_CLIENT_SIDEFILES_H
