// menu.h - the interactive menu and the run-mode dispatch of main.
#ifndef VX_SHELL_MENU_H
#define VX_SHELL_MENU_H

// The interactive menu: sets the audio mode once, then prints the menu and
// acts on one key per line until q or end of input.
void RunMenu();

// The whole program: main() only calls this.
int vxShellMain(int argc, char** argv);

#endif // VX_SHELL_MENU_H
