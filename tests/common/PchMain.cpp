// Carries the test suites' shared precompiled header; the suites reuse it. Runs no tests.
