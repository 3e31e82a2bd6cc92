// Placeholder until the simulator lands.
int main() { return 0; }
