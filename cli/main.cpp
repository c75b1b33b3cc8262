#include <cstdio>
int main() { std::puts("omnira"); return 0; }
