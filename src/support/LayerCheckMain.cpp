// The program of the layer checks: it only has to link.
int main() { return 0; }
