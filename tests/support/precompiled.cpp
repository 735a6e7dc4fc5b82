// The program of which the unit tests take the precompiled GoogleTest.
int main() {}
