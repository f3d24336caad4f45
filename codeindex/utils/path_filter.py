"""Which files are tests: by the folders they lie in and by the habits of naming test files."""

import re

# Folders that hold tests or their data in any language ("src/test/java", "__tests__",
# "testdata", "Foo.Tests", "integration-tests", "androidTest").
_TEST_FOLDER = re.compile(
    r"""
    (?: .*[._-] )? (?: test | tests | testdata | testcase | testcases | unittest | unittests
                     | fixture | fixtures | e2e )
    (?: [_-]? (?: data | cases | fixtures | suite | suites | resources ) )?
    | __ (?: tests | mocks | fixtures | snapshots ) __
    """,
    re.VERBOSE,
)
_CAMEL_TEST_FOLDER = re.compile(r"[a-z][A-Za-z0-9]*[a-z0-9]Tests?")

# File names without their last ending: test_x (Python, C, Ruby, R), x_test (Go, C++, Dart,
# Elixir, Rust, Clojure), x.test and x-test (JavaScript, TypeScript), tests (Django, Rust),
# x_unittest (C++), conftest (pytest), runtests (Julia), x_SUITE (Erlang).
_TEST_STEM = re.compile(
    r"(?:.*[._-])?(?:tests?|unittests?)|tests?[._-].*|conftest|runtests|.*_suite|.*\.cy"
)
# FooTest, FooTests, FooTestCase (Java, Kotlin, C#, PHP, Swift, Objective-C, C++, Scala).
_CAMEL_TEST_STEM = re.compile(r".*[a-z0-9](?:Tests?|TestCase|TestSuite)")

# TestFoo and FooIT are test classes where a file is named after its one class.
_CLASS_FILES = frozenset({"cs", "groovy", "java", "kt", "scala"})
_CLASS_TEST_STEM = re.compile(r"Tests?[A-Z0-9].*|.*[a-z0-9]IT(?:Case)?")

# "spec" means a test only where that habit exists: a Java FooSpec describes a Foo.
_SPEC_FILES = frozenset(
    {
        *("coffee", "cr", "cts", "js", "jsx", "lua", "mjs", "mts", "rb", "ts", "tsx"),
        *("groovy", "hs", "kt", "scala", "swift"),
    }
)
_SPEC_FOLDERS = frozenset({"spec", "specs"})
_SPEC_STEM = re.compile(r"(?:.*[._-])?specs?|spec_helper|.*[a-z0-9]Spec")


def is_test_path(path: str) -> bool:
    """Return whether a file is a test, a helper of tests or their data.

    `path` is relative to the repository root, with forward slashes. Only its spelling is judged;
    the file need not exist.
    """
    *folders, file_name = path.split("/")
    stem, _, suffix = file_name.rpartition(".")
    if not stem:
        stem, suffix = file_name, ""
    suffix = suffix.lower()
    for folder in folders:
        if _TEST_FOLDER.fullmatch(folder.lower()) or _CAMEL_TEST_FOLDER.fullmatch(folder):
            return True
    if _TEST_STEM.fullmatch(stem.lower()) or _CAMEL_TEST_STEM.fullmatch(stem):
        return True
    if suffix in _CLASS_FILES and _CLASS_TEST_STEM.fullmatch(stem):
        return True
    if suffix in _SPEC_FILES:
        in_spec_folder = any(folder.lower() in _SPEC_FOLDERS for folder in folders)
        return in_spec_folder or _SPEC_STEM.fullmatch(stem) is not None
    return False
