/* mconf.h - the configuration store (mCONF). */
#ifndef MCONF_H
#define MCONF_H

/* Records a debug level that nothing else reads. */
void mCONF_SetDebugLevel(int level);

#endif /* MCONF_H */
