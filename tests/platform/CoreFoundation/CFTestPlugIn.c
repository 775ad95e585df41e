/* Stand-in plug-in binary: one exported function the test resolves. */
__attribute__((visibility("default"))) int CFTestPlugInAnswer(void);

int CFTestPlugInAnswer(void)
{
    return 42;
}
