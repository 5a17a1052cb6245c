// Linked in each way a host may link: the library before its core, and after it.

#include <vantamo/vantamo.h>

int main() { return Vantamo::libraryVersion() == "1.1.28" && !Vantamo::shutdown() ? 0 : 1; }
