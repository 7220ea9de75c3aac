# Convenience targets; the scripts do the work.
.PHONY: run test test-asan test-tsan build clean
run:
	./scripts/run
test:
	./scripts/test
test-asan:
	./scripts/test asan
test-tsan:
	./scripts/test tsan
build:
	./scripts/build
clean:
	rm -rf build
