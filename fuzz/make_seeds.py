#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets into fuzz/corpus/<target>/.

Each seed is a scenario in the targets' input format (see the opcode lists at the top
of each target): a drive with clients subscribing and a replay, services leaving and
coming back, a second client closing the delivery gate, time stamps that jump, a
Configuration of 255 entries, and handshakes with right, wrong and null peers. The
fuzzer starts from them; run this again after changing an input format.
"""
import os
import struct

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus")


def u8(v): return struct.pack("<B", v & 0xFF)
def u16(v): return struct.pack("<H", v & 0xFFFF)
def i16(v): return struct.pack("<h", v)
def u32(v): return struct.pack("<I", v & 0xFFFFFFFF)
def i32(v): return struct.pack("<i", v)
def u64(v): return struct.pack("<Q", v & 0xFFFFFFFFFFFFFFFF)


def header(flags, start):
    return u8(flags) + u32(start) + u8(start >> 32)


# can_stream_fuzzer
def can_record(stamp, pulses, rate, direction, samples):
    return u8(0) + u32(stamp) + u16(pulses) + i16(rate) + u32(direction) + u8(samples)
def can_sync(t): return u8(1) + u32(t)
def can_toggle(): return u8(2)
def can_attach(c): return u8(3) + u8(c)
def can_subscribe(c, kind, flag): return u8(4) + u8(c) + u16(kind) + i32(flag)
def can_detach(c): return u8(5) + u8(c)
def can_advance(ms): return u8(6) + u16(ms)
def can_status(identification): return u8(7) + u8(1 if identification else 0) + (b"" if identification else u32(7))
def can_burst(count, stamp, step, rate): return u8(8) + u8(count - 1) + u32(stamp) + u16(step) + i16(rate)


def can_seeds():
    s = {}
    s["drive_with_replay"] = (header(2 | 4, 100000) + can_attach(0) + can_subscribe(0, 1, 0) +
                              can_subscribe(0, 2, 1) + can_advance(20) + can_sync(97520) +
                              can_burst(200, 97600, 200, -5) + can_advance(1000) + can_sync(98600) +
                              can_record(137600, 3, 9, 0x21, 10) + can_record(137800, 4, -9, 0x25, 255) +
                              can_record(138000, 0, 0, 0x22, 0) + can_burst(150, 138200, 200, 40) +
                              can_subscribe(0, 7, 1) + can_status(False) + can_status(True))
    s["late_client_gets_the_last_minute"] = (header(0, 250000) + can_toggle() + can_burst(256, 1000, 200, 1) +
                                              can_burst(100, 52200, 200, 2) + can_attach(1) +
                                              can_subscribe(1, 1, 0) + can_subscribe(1, 2, 1))
    s["second_client_closes_the_gate"] = (header(4, 100000) + can_attach(0) + can_attach(1) +
                                          can_subscribe(0, 1, 0) + can_subscribe(0, 2, 0) +
                                          can_record(500, 1, 1, 0x21, 1) + can_subscribe(1, 1, 1) +
                                          can_record(700, 2, 2, 0x21, 1) + can_detach(0) +
                                          can_record(900, 3, 3, 0x25, 1) + can_detach(1) +
                                          can_record(1100, 4, 4, 0x25, 1))
    s["service_leaves_and_returns"] = (header(4, 100000) + can_attach(2) + can_subscribe(2, 2, 0) +
                                       can_subscribe(2, 1, 1) + can_burst(10, 100, 200, 0) + can_toggle() +
                                       can_record(3000, 1, 1, 0x21, 1) + can_advance(5000) + can_toggle() +
                                       can_sync(1) + can_record(3200, 1, 1, 0x21, 1))
    s["log_control_wants_nothing"] = (header(1 | 4, 100000) + can_attach(0) + can_subscribe(0, 1, 0) +
                                      can_subscribe(0, 1, 1) + can_record(10, 1, 2, 0x21, 3) +
                                      can_subscribe(0, 2, 0) + can_record(20, 1, 2, 0x21, 3))
    s["tick_beyond_32_bits"] = (header(4, (3 << 32) + 5000) + can_attach(3) + can_subscribe(3, 1, 0) +
                                can_subscribe(3, 2, 0) + can_sync(0xFFFFFFFF) + can_sync(10) +
                                can_advance(65535) + can_sync(20) + can_record(0xFFFFFFF0, 9, 9, 0x21, 9))
    s["client_leaves_and_subscribes_again"] = (header(4, 100000) + can_attach(0) + can_subscribe(0, 1, 0) +
                                               can_subscribe(0, 2, 1) + can_record(5, 1, 1, 0x21, 1) +
                                               can_detach(0) + can_record(205, 1, 1, 0x21, 1) + can_attach(0) +
                                               can_subscribe(0, 1, 0) + can_subscribe(0, 2, 1) +
                                               can_record(405, 1, 1, 0x21, 1))
    # A measurement equal to the kick's tick is refused; one less gives an offset of 1.
    s["measurement_at_the_kick"] = (header(4, 100000) + can_attach(0) + can_subscribe(0, 1, 0) +
                                    can_subscribe(0, 2, 0) + can_sync(99000) + can_record(500, 1, 1, 0x21, 1) +
                                    can_sync(100000) + can_record(700, 1, 1, 0x21, 1) + can_sync(99999) +
                                    can_record(900, 1, 1, 0x21, 1) + can_advance(1000) + can_sync(101000) +
                                    can_record(1100, 1, 1, 0x21, 1))
    return s


# external_stream_fuzzer
def ext_data(stamp, values, kind=None, direct=False, mode=1):
    m = (1 if direct else 0) | (2 if kind is None else 0) | (mode << 2)
    out = u8(0) + u8(m) + (b"" if kind is None else u16(kind))
    out += {0: i16, 1: u64, 2: u32}[mode](stamp)
    return out + u8(len(values)) + b"".join(i16(v) for v in values)
def ext_report(t, direct=False): return u8(1) + u8(1 if direct else 0) + u32(t)
def ext_config(entries, direct=False):
    return (u8(2) + u8(1 if direct else 0) + u8(len(entries)) +
            b"".join(u16(a) + u16(b) + u16(c) + u8(d) for a, b, c, d in entries))
def ext_toggle_clock(): return u8(3)
def ext_toggle_service(): return u8(4)
def ext_attach(c): return u8(5) + u8(c)
def ext_subscribe(c, kind, flag): return u8(6) + u8(c) + u16(kind) + i32(flag)
def ext_detach(c): return u8(7) + u8(c)
def ext_advance(ms): return u8(8) + u16(ms)
def ext_burst(count, stamp, step, base): return u8(9) + u8(count - 1) + u32(stamp) + u16(step) + i16(base)
def ext_plug(): return u8(10)


def external_seeds():
    s = {}
    s["drive_with_replay"] = (header(2 | 4, 100000) + ext_config([(0x8000, 1, 200, 4)]) + ext_advance(20) +
                              ext_report(97520) + ext_attach(0) + ext_subscribe(0, 1, 0) +
                              ext_subscribe(0, 2, 1) + ext_burst(250, 97600, 200, 3) +
                              ext_burst(100, 147600, 200, -3) + ext_subscribe(0, 9, 1))
    s["supervision"] = (header(2 | 4, 100000) + ext_config([]) + ext_attach(1) + ext_subscribe(1, 1, 0) +
                        ext_subscribe(1, 2, 0) + ext_data(1000, [1, 2, 3, 4]) + ext_data(250, [1, 2, 3, 4], mode=0) +
                        ext_data(251, [5, 6, 7, 8], mode=0) + ext_data(-100, [9, 9, 9, 9], mode=0) +
                        ext_data(0, [1, 1, 1, 1], mode=0) + ext_data(1 << 33, [2, 2, 2, 2]) +
                        ext_data(0, []) + ext_data(7, [1, 2, 3], mode=0) + ext_data(9, [1, 2, 3, 4, 5, 6], mode=0) +
                        ext_data(10, [1, 2, 3, 4], kind=1, mode=0) + ext_data(0, [4, 3, 2, 1]) +
                        ext_data(5, [4, 3, 2, 1], mode=0))
    s["configuration_of_255"] = (header(4, 100000) +
                                 ext_config([(i, i * 3, 200 + i, i & 7) for i in range(255)]) +
                                 ext_config([(0x8000, 1, 200, 4)] * 3, direct=True) + ext_toggle_service() +
                                 ext_config([(1, 1, 1, 1)]) + ext_config([(2, 2, 2, 2)], direct=True))
    s["clock_sync_comes_and_goes"] = (header(0, 100000) + ext_toggle_service() + ext_toggle_clock() +
                                      ext_advance(1000) + ext_report(50000) + ext_attach(2) +
                                      ext_subscribe(2, 2, 0) + ext_subscribe(2, 1, 1) +
                                      ext_burst(20, 48000, 200, 7) + ext_toggle_clock() +
                                      ext_report(51000, direct=True) + ext_burst(5, 52000, 200, 8) +
                                      ext_toggle_clock() + ext_advance(30) + ext_report(52900) +
                                      ext_burst(5, 53000, 200, 9) + ext_advance(65000))
    s["services_call_after_leaving"] = (header(2 | 4, 100000) + ext_toggle_service() +
                                        ext_data(500, [1, 2, 3, 4], direct=True) + ext_toggle_clock() +
                                        ext_report(10, direct=True) + ext_data(700, [5, 6, 7, 8], direct=True) +
                                        ext_config([(0x8000, 1, 200, 4)], direct=True))
    s["main_unit_unplugged"] = (header(2 | 4 | 1, 100000) + ext_plug() + ext_advance(3000) + ext_plug() +
                                ext_advance(1000) + ext_report(99000) + ext_attach(3) + ext_attach(0) +
                                ext_subscribe(3, 1, 0) + ext_subscribe(3, 2, 1) + ext_subscribe(0, 1, 0) +
                                ext_burst(3, 99100, 200, 1) + ext_detach(3) + ext_burst(3, 99700, 200, 1))
    s["measurement_at_the_kick"] = (header(2 | 4, 100000) + ext_attach(0) + ext_subscribe(0, 1, 0) +
                                    ext_subscribe(0, 2, 0) + ext_report(99000) + ext_data(500, [1, 2, 3, 4]) +
                                    ext_report(100000) + ext_data(200, [1, 2, 3, 4], mode=0) + ext_report(99999) +
                                    ext_data(200, [1, 2, 3, 4], mode=0))
    return s


# broker_handshake_fuzzer: module operations and arguments name an end (the handlers
# in request order, then the peers; one past the last end is null), peer operations a
# peer: 0-1 micro-host services, 2-3 clients, 4 a client of the other store instance,
# 5-6 clock-sync services, 7-8 external services.
def hs_module_register(h, a): return u8(0) + u8(h) + u8(a)
def hs_module_unregister(h, a): return u8(1) + u8(h) + u8(a)
def hs_peer_register(p, a): return u8(2) + u8(p) + u8(a)
def hs_peer_unregister(p, a): return u8(3) + u8(p) + u8(a)
def hs_attach(p): return u8(4) + u8(p)
def hs_detach(p): return u8(5) + u8(p)


def handshake_seeds():
    s = {}
    # CAN: ends 0 (micro-host handler), 1 (store), 2-10 the peers, 11 null.
    s["can_broker_attach_and_detach"] = (u8(0) + hs_attach(0) + hs_attach(1) + hs_attach(2) + hs_attach(3) +
                                         hs_attach(4) + hs_detach(2) + hs_detach(0) + hs_attach(0) + hs_detach(3) +
                                         hs_attach(5) + hs_attach(7))
    s["can_right_wrong_and_null"] = (u8(0) + hs_module_register(0, 11) + hs_module_register(0, 4) +
                                     hs_module_register(0, 2) + hs_module_register(0, 3) +
                                     hs_module_unregister(0, 11) + hs_module_unregister(0, 3) +
                                     hs_module_unregister(0, 2) + hs_module_unregister(0, 2) +
                                     hs_module_register(1, 5) + hs_peer_register(3, 1) + hs_peer_unregister(3, 11) +
                                     hs_peer_unregister(3, 1) + hs_peer_register(0, 0) + hs_module_register(1, 0))
    # EXTERNAL: ends 0 (clock-sync handler), 1 (external service handler), 2 (store),
    # 3-11 the peers, 12 null.
    s["external_broker_attach_and_detach"] = (u8(1) + hs_attach(5) + hs_attach(7) + hs_attach(2) +
                                              hs_attach(3) + hs_detach(5) + hs_attach(6) + hs_detach(7) +
                                              hs_detach(6) + hs_attach(4) + hs_detach(2))
    s["external_cross_pairs"] = (u8(1 | 2) + hs_module_register(0, 10) + hs_module_register(1, 8) +
                                 hs_peer_register(7, 0) + hs_peer_register(5, 1) + hs_module_register(0, 8) +
                                 hs_module_unregister(1, 12) + hs_module_unregister(0, 8) +
                                 hs_peer_unregister(5, 0) + hs_module_register(2, 12) + hs_module_register(2, 5))
    return s


# trace_reader_fuzzer: a flags byte (bit 0: shift the stamps to just before the wrap;
# bits 1-2: a replay window; bits 3-4: loops), then the trace's text.
def trace_seeds():
    can = b"TimeStamp,DistancePuls,AngularRate,DrivingDirection,NrOfSamples\n"
    ext = b"timeStamp,value0,value1,value2,value3\n"
    clock = (b"# clock: local-start-ms=100000 local-anchor-ms=100100 peer-anchor-ms=97600 drift-ppm=40 "
             b"sync-latency-ms=20\n")
    rows = b"".join(b"%d,%d,%d,33,10\n" % (97600 + 200 * i, i % 7, 100 - i) for i in range(30))
    s = {}
    s["can_recording"] = u8(0) + b"# positioning-sim trace\n" + clock + can + rows
    s["can_window_and_loops"] = u8(2 | 8) + can + rows
    s["can_across_the_wrap"] = u8(1) + can + b"4294967000,1,2,33,10\n4294967200,1,2,33,10\n104,1,2,33,10\n"
    s["external_going_back"] = u8(4) + ext + b"1000,10,1,0,1\n1200,10,1,0,1\n900,10,1,0,1\n900,10,1,0,1\n"
    s["external_stamp_shift"] = (u8(16) + clock + ext + b"97600,10,1,0,1\n# stamp-shift-ms: 5000\n"
                                 b"102800,10,1,0,1\n# stamp-shift-ms: -300\n97700,10,1,0,1\n")
    s["header_in_lower_case"] = u8(0) + b"timestamp,distancepuls,angularrate,drivingdirection,nrofsamples\n1,2,3,4,5\n"
    s["byte_order_mark"] = u8(0) + b"\xef\xbb\xbf" + can + b"1,2,3,4,5\n"
    s["out_of_range"] = u8(0) + ext + b"97600,1,2,3,4\n9000000000000000000,1,2,3,4\n"
# drive_import_fuzzer: a choices byte, a period byte, then the CSV text.
def import_seed(choices, period, text):
    return u8(choices) + u8(period) + text.encode()


def import_seeds():
    s = {}
    rows = "".join("%.2f,%.3f,%.1f,D,%.2f,%.2f,%.1f\n" % (i * 0.05, (i % 40 - 20) / 7.0, 36 + i % 9, i * 0.5,
                                                            i * 0.25, (i * 3) % 360) for i in range(60))
    s["speed_pose_gear"] = import_seed(0x02 | 0x10, 95, "t,r,v,g,x,y,h\n" + rows)
    s["distance_external_geographic"] = import_seed(
        0x01 | 0x02 | 0x04 | 0x08 | 0x20,
        20,
        "\ufeff# logger\nt,r,d,x,y,h\n" + "".join("%.1f,1.5,%.2f,48.%06d,11.%06d,%d\n" % (i * 0.1, i * 0.9, 1000 + i,
                                                                                           2000 + i, i % 360)
                                                      for i in range(50)))
    s["milliseconds_reverse_sparse_pose"] = import_seed(
        0x02 | 0x10 | 0x40 | 0x80, 0,
        "g,t,x,y,h,v,r\n" + "".join("%s,%d,%s,-%.1f,%.3f\n" % ("R" if i > 30 else "drive", i * 7,
                                                               "1,2,90" if i % 10 == 0 else ",,", 3.6 * (i % 5),
                                                               -0.25 * i) for i in range(45)))
    s["gap_and_going_back"] = import_seed(0x00, 90, "t,r,v\n0,0,1\n0.5,1,1\n0.4,1,1\n100,0,0\n")
    return s


def write(target, seeds):
    folder = os.path.join(ROOT, target)
    os.makedirs(folder, exist_ok=True)
    for name, data in seeds.items():
        with open(os.path.join(folder, name), "wb") as out:
            out.write(data)


if __name__ == "__main__":
    write("can_stream_fuzzer", can_seeds())
    write("external_stream_fuzzer", external_seeds())
    write("broker_handshake_fuzzer", handshake_seeds())
    write("trace_reader_fuzzer", trace_seeds())
    write("drive_import_fuzzer", import_seeds())
