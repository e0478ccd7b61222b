// Asks the instrument once a second and prints the replies, also after it was unplugged. Enter ends it.
// GOOS=windows go build ask.go, with the MorvaneClient.dll of the program's architecture beside ask.exe.
package main

import (
	"fmt"
	"os"
	"syscall"
	"time"
	"unsafe"
)

const ok, noHandle, closed = 0, -2, -3 // of morvane_client.h

var library = syscall.MustLoadDLL("MorvaneClient.dll")

func call(name string, arguments ...uintptr) int32 {
	result, _, _ := library.MustFindProc(name).Call(arguments...)
	return int32(result)
}

func say(error int32) {
	text, _, _ := library.MustFindProc("morvane_error_text").Call(uintptr(error))
	bytes := (*[1024]byte)(unsafe.Pointer(text))
	length := 0
	for bytes[length] != 0 {
		length++
	}
	fmt.Println(string(bytes[:length]))
}

func main() {
	message, reply := []byte(append(os.Args, "hello")[1]), make([]byte, 65535)
	var port, length uint32
	if error := call("morvane_open", 3, 1, 0, 10000, uintptr(unsafe.Pointer(&port))); error != ok {
		say(error)
		os.Exit(1)
	}
	ended := make(chan bool)
	go func() {
		fmt.Scanln()
		call("morvane_close", uintptr(port)) // ends the call below; returns when the router is released
		ended <- true
	}()
	for error := int32(ok); error != closed && error != noHandle; {
		error = call("morvane_request", uintptr(port), uintptr(unsafe.Pointer(&message[0])), uintptr(len(message)),
			uintptr(unsafe.Pointer(&reply[0])), uintptr(len(reply)), uintptr(unsafe.Pointer(&length)), 2000)
		if error == ok {
			fmt.Println(string(reply[:length]))
			time.Sleep(time.Second)
		} else if error != closed && error != noHandle { // the library waits for instrument and router
			say(error)
			if error = call("morvane_wait_ready", uintptr(port), 60000); error == ok {
				error = call("morvane_resync", uintptr(port), 500, 10000) // a late reply is not the next one
			}
		}
	}
	<-ended
}
