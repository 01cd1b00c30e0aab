// The linker is the test: every object of the base and of one wing is linked in here, and nothing
// that could resolve what they would ask of the other wing.
int main() {
    return 0;
}
