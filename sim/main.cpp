// vxsim: the stand-in media service.
int main() { return 0; }
