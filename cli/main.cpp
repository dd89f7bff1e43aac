#include <cstdio>
int main() { std::puts("velmora: not built yet"); return 1; }
