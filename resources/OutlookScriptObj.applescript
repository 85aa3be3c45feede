-- OutlookScriptObj: the agent's bridge to Microsoft Outlook for Mac, loaded through AppleScriptObjC
-- from the application bundle (compiled by osacompile into Contents/Resources/OutlookScriptObj.scpt).
-- The agent makes a fresh instance for every operation and sends it one handler (two when it applies
-- the two default signatures one by one). Every argument arrives as text.
--
-- Signatures are created, read and deleted through Outlook's scripting dictionary ("signature" with
-- "name" and "content", the application's "default account"). Outlook does not script its default
-- signatures, so the apply handlers drive the Signatures pane of Outlook's Preferences (Settings in
-- newer versions) by GUI scripting, which is why the agent needs the accessibility permission. That
-- window stays open for the user to close, as the apply dialog says.
--
-- The "new Outlook" interface scripts almost nothing: no signatures, no default account. There the
-- handlers raise errors (the agent logs the operation as failed) instead of pretending to succeed.
-- Any error a handler raises reaches the agent as a failed operation; none is swallowed except where
-- the agent expects empty text (no version, no default account, no such signature).

script OutlookScriptObj
	property parent : class "NSObject"

	-- The agent creates its default signatures under exactly these names.
	property newSignatureName : "Default New Email Signature"
	property replySignatureName : "Default Reply Forward Email Signature"
	property noSignature : "None"

	on getVersion()
		try
			tell application "Microsoft Outlook" to return (version as text)
		on error
			return ""
		end try
	end getVersion

	-- The default account is an Exchange, IMAP or POP account; each of them has an email address.
	on getDefaultAccount()
		tell application "Microsoft Outlook"
			set defaultAccount to default account
			if defaultAccount is missing value then return ""
			set accountEmail to email address of defaultAccount
		end tell
		if accountEmail is missing value then return ""
		return accountEmail as text
	end getDefaultAccount

	-- Outlook keeps a signature's content as HTML of its own; empty text when there is no such signature.
	on getSignature:signatureName
		set signatureName to signatureName as text
		tell application "Microsoft Outlook"
			if not (exists signature signatureName) then return ""
			return (content of signature signatureName) as text
		end tell
	end getSignature:

	-- A signature that exists keeps its identity and only gets the new content, so Outlook's default
	-- assignments to it survive (deleting it would clear them). Duplicates of the name are removed.
	on createSignature:signatureName content:signatureContent
		set signatureName to signatureName as text
		set signatureContent to signatureContent as text
		tell application "Microsoft Outlook"
			set existing to every signature whose name is signatureName
			if (count of existing) is 0 then
				make new signature with properties {name:signatureName, content:signatureContent}
			else
				set content of item 1 of existing to signatureContent
				repeat with extraSignature in rest of existing
					delete extraSignature
				end repeat
			end if
			if not (exists signature signatureName) then error "Outlook did not keep the signature " & signatureName
		end tell
	end createSignature:content:

	on deleteSignature:signatureName
		set signatureName to signatureName as text
		tell application "Microsoft Outlook"
			if exists signature signatureName then delete (every signature whose name is signatureName)
			if exists signature signatureName then error "Outlook did not delete the signature " & signatureName
		end tell
	end deleteSignature:

	on deleteSignatures()
		tell application "Microsoft Outlook"
			delete every signature
			if (count of signatures) is not 0 then error "Outlook did not delete every signature"
		end tell
	end deleteSignatures

	on applySignaturesFor:accountAddress
		my chooseDefaults(accountAddress as text, newSignatureName, replySignatureName)
	end applySignaturesFor:

	on applyDefaultNewSignatureFor:accountAddress
		my chooseDefaults(accountAddress as text, newSignatureName, missing value)
	end applyDefaultNewSignatureFor:

	on applyDefaultReplySignatureFor:accountAddress
		my chooseDefaults(accountAddress as text, missing value, replySignatureName)
	end applyDefaultReplySignatureFor:

	on applyNoneSignaturesFor:accountAddress
		my chooseDefaults(accountAddress as text, noSignature, noSignature)
	end applyNoneSignaturesFor:

	on applyNoneDefaultNewSignatureFor:accountAddress
		my chooseDefaults(accountAddress as text, noSignature, missing value)
	end applyNoneDefaultNewSignatureFor:

	on applyNoneDefaultReplySignatureFor:accountAddress
		my chooseDefaults(accountAddress as text, missing value, noSignature)
	end applyNoneDefaultReplySignatureFor:

	-- Selects the account in the Signatures window and picks the signature in the pop-up button of each
	-- default; missing value leaves that default as it is. Every step that fails raises an error that
	-- names the step.
	on chooseDefaults(accountAddress, newChoice, replyChoice)
		tell application "Microsoft Outlook" to activate
		set signaturesWindow to my openSignaturesWindow()
		my chooseAccount(signaturesWindow, accountAddress)
		if newChoice is not missing value then my chooseItem(signaturesWindow, "New messages:", newChoice)
		if replyChoice is not missing value then my chooseItem(signaturesWindow, "Replies/forwards:", replyChoice)
	end chooseDefaults

	-- The Signatures window stays open after a message, so the next one uses it as it is; otherwise
	-- Preferences (named Settings in newer Outlook versions) opens and its Signatures button is clicked.
	on openSignaturesWindow()
		tell application "System Events"
			tell process "Microsoft Outlook"
				set frontmost to true
				if exists window "Signatures" then return window "Signatures"
				keystroke "," using command down
			end tell
		end tell
		set settingsWindow to my waitForWindow({"Outlook Preferences", "Outlook Settings", "Preferences", "Settings"}, "open its Preferences (Settings) window")
		try
			tell application "System Events" to click button "Signatures" of settingsWindow
		on error message
			error "Cannot click Signatures in Outlook's Preferences (Settings) window: " & message
		end try
		return my waitForWindow({"Signatures"}, "open its Signatures window")
	end openSignaturesWindow

	-- Outlook opens its windows asynchronously; give up after ten seconds.
	on waitForWindow(windowNames, stepName)
		repeat 50 times
			tell application "System Events"
				tell process "Microsoft Outlook"
					repeat with windowName in windowNames
						if exists window (windowName as text) then return window (windowName as text)
					end repeat
				end tell
			end tell
			delay 0.2
		end repeat
		error "Outlook did not " & stepName & " within 10 seconds"
	end waitForWindow

	-- The Account pop-up lists account names, not addresses: the item that equals the address wins,
	-- else the first that contains it (both ignore case, as AppleScript compares text).
	on chooseAccount(signaturesWindow, accountAddress)
		set itemNames to my openPopUp(signaturesWindow, "Account:")
		set chosen to missing value
		repeat with itemName in itemNames
			if contents of itemName is not missing value and (contents of itemName as text) is accountAddress then
				set chosen to contents of itemName as text
				exit repeat
			end if
		end repeat
		if chosen is missing value then
			repeat with itemName in itemNames
				if contents of itemName is not missing value and (contents of itemName as text) contains accountAddress then
					set chosen to contents of itemName as text
					exit repeat
				end if
			end repeat
		end if
		if chosen is missing value then
			my closeMenu()
			error "No item of the Account pop-up matches " & accountAddress & "; items seen: " & my joined(itemNames)
		end if
		my pickItem(signaturesWindow, "Account:", chosen)
	end chooseAccount

	on chooseItem(signaturesWindow, popUpName, itemName)
		set itemNames to my openPopUp(signaturesWindow, popUpName)
		if itemNames does not contain {itemName} then
			my closeMenu()
			error "The " & popUpName & " pop-up has no item " & itemName & "; items seen: " & my joined(itemNames)
		end if
		my pickItem(signaturesWindow, popUpName, itemName)
	end chooseItem

	-- Opens the pop-up button and answers the names of its menu items (missing value for separators).
	on openPopUp(signaturesWindow, popUpName)
		try
			tell application "System Events"
				set popUp to pop up button popUpName of signaturesWindow
				click popUp
				delay 0.3
				return name of every menu item of menu 1 of popUp
			end tell
		on error message
			error "Cannot open the " & popUpName & " pop-up of the Signatures window: " & message
		end try
	end openPopUp

	on pickItem(signaturesWindow, popUpName, itemName)
		try
			tell application "System Events"
				click menu item itemName of menu 1 of pop up button popUpName of signaturesWindow
				delay 0.3
			end tell
		on error message
			error "Cannot choose " & itemName & " in the " & popUpName & " pop-up: " & message
		end try
	end pickItem

	on closeMenu()
		tell application "System Events" to key code 53 -- Escape
	end closeMenu

	on joined(itemNames)
		set seen to {}
		repeat with itemName in itemNames
			if contents of itemName is not missing value then set end of seen to (contents of itemName as text)
		end repeat
		set savedDelimiters to AppleScript's text item delimiters
		set AppleScript's text item delimiters to ", "
		set listing to seen as text
		set AppleScript's text item delimiters to savedDelimiters
		return listing
	end joined
end script
