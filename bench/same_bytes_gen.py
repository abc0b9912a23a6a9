# Generated JSON records for bench/same_bytes.sh: every value kind, nested
# objects, arrays of objects and of numbers, names long and short, non-ASCII
# and lone surrogates. usage: same_bytes_gen.py OUT SEED
import json, random, sys
out = sys.argv[1]
r = random.Random(int(sys.argv[2]))
names = ["a", "id", "x", "name", "flag", "count", "screen_name", "profile_image_url_https", "Ä", "\u00e9t\u00e9", "k\U0001F600", "text-content", "A", "b", "MixedCase", "with space"]
def scalar():
    k = r.randrange(9)
    if k == 0: return r.randrange(-2**31, 2**31)
    if k == 1: return r.randrange(-20, 20)
    if k == 2: return r.uniform(-1e6, 1e6)
    if k == 3: return r.choice([True, False])
    if k == 4: return None
    if k == 5: return "".join(r.choice("abcXYZ \u00e9\u4e2d\ud83d\ude00\\\"\n\t") for _ in range(r.randrange(0, 30)))
    if k == 6: return r.choice([0.1, 1e300, -0.0, 5e-324, 2**31, -2**31 - 1, 1e16])
    if k == 7: return ""
    return r.randrange(0, 256)
def value(depth):
    k = r.randrange(10)
    if depth < 4 and k < 3: return obj(depth + 1)
    if depth < 4 and k == 3: return [obj(depth + 1) for _ in range(r.randrange(0, 4))]
    if k == 4: return [scalar() for _ in range(r.randrange(0, 5))]
    if k == 5: return [r.randrange(-99, 99) for _ in range(r.randrange(1, 6))]
    if k == 6: return [[r.random(), r.random()] for _ in range(r.randrange(1, 4))]
    return scalar()
def obj(depth):
    return {r.choice(names): value(depth) for _ in range(r.randrange(0, 9))}
with open(out, "w", errors="surrogatepass") as f:
    for _ in range(200):
        f.write(json.dumps(obj(0), ensure_ascii=r.choice([True, False])) + "\n")
